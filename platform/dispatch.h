// The main queue: work that runs one piece after the other on the main thread.
#pragma once

#include <functional>

namespace platform::dispatch {

/// Runs work later on the main thread, after what was handed over before. May be called from any thread, the main one
/// included; never runs the work itself.
void asyncMain(std::function<void()> work);

/// Whether the caller runs on the process's main thread.
bool isMainThread();

/// Serves the main queue for ever. Called once, on the main thread; the process ends through exit().
[[noreturn]] void dispatchMain();

}  // namespace platform::dispatch
