// Queues of work, and timers that fire on them.
//
// Shaped after libdispatch, which is what carries it on macOS.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace platform::dispatch {

/// Where work runs. Copies stand for the same queue. An exception that leaves a piece of work ends the process.
class Queue {
 public:
  class Implementation;
  explicit Queue(std::shared_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
  Implementation& implementation() const { return *implementation_; }

 private:
  std::shared_ptr<Implementation> implementation_;
};

/// Runs work one piece after the other, from when the main thread is in dispatchMain(): on Linux on that thread, on
/// macOS on any.
Queue mainQueue();

/// Runs work on up to 64 threads at once, begun in the order in which it was handed over.
Queue globalQueue();

/// Makes a queue that runs work one piece after the other, on the threads of the global queue. Work that was handed
/// over runs even when nobody keeps the queue. The name is for debuggers.
Queue makeSerialQueue(const std::string& name);

/// Runs work later on a queue. May be called from any thread, the queue's own included; never runs the work itself.
void async(const Queue& queue, std::function<void()> work);

/// Runs work on a queue once a delay has passed on the monotonic clock.
void after(std::chrono::nanoseconds delay, const Queue& queue, std::function<void()> work);

enum class Clock {
  monotonic,  ///< stands still while the machine sleeps
  wall,       ///< civil time: goes on while the machine sleeps, and a timer moves when the clock is set
};

/// When a timer fires.
struct Schedule {
  Clock clock = Clock::monotonic;
  std::chrono::nanoseconds start{0};  ///< from the making of the timer to its first firing
  /// From one firing to the next, counted from the times at which they were due: firings that a busy queue missed come
  /// as one. neverAgain: fires once.
  std::chrono::nanoseconds period = neverAgain;
  /// How late it may fire for the system's convenience; at most half the period is used.
  std::chrono::nanoseconds leeway{0};

  static constexpr auto neverAgain = std::chrono::nanoseconds::max();
};

/// A timer: calls its handler on a queue, never twice at once. Cancelled when destroyed. Distinct sources may be used
/// on different threads; one source by one thread at a time.
class TimerSource {
 public:
  class State;

  TimerSource() = default;
  /// Makes a timer that counts from now but stays silent until resume().
  TimerSource(const Queue& queue, const Schedule& schedule, std::function<void()> handler);
  TimerSource(TimerSource&&) = default;
  TimerSource& operator=(TimerSource&& other) noexcept;
  ~TimerSource() { cancel(); }

  explicit operator bool() const { return state_ != nullptr; }

  /// Lets the timer fire. Called once.
  void resume();

  /// Stops the timer and empties this object. A call of the handler that has begun on another thread goes on; none
  /// begins from here on. The handler is let go when no call of it is running.
  void cancel();

 private:
  std::shared_ptr<State> state_;
};

/// Whether the caller runs on the process's main thread; on macOS nothing does any more once that is in dispatchMain().
bool isMainThread();

/// Serves the main queue for ever. Called once, on the main thread; the process ends through exit().
[[noreturn]] void dispatchMain();

}  // namespace platform::dispatch
