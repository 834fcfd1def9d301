// Starting threads.
#pragma once

#include <functional>
#include <thread>

#include "platform/base/result.h"

namespace platform {

/// Starts a thread with all signals blocked, so that signals are delivered to the main thread. Fails if the system
/// cannot make another thread.
Result<std::thread> startThread(std::function<void()> body);

}  // namespace platform
