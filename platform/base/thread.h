// Threads of the process's own.
#pragma once

#include <functional>
#include <thread>

#include "platform/base/result.h"

namespace platform {

/// Starts a thread that signals are never delivered to: they are the main thread's. Fails when the system has
/// no thread to give.
Result<std::thread> startThread(std::function<void()> body);

}  // namespace platform
