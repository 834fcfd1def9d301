// Threads of the process's own.
#pragma once

#include <functional>
#include <thread>

namespace platform {

/// Starts a thread that signals are never delivered to: they are the main thread's. Throws std::system_error when the
/// system has no thread to give.
std::thread startThread(std::function<void()> body);

}  // namespace platform
