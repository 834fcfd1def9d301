// Queues of work, and timers that fire on them. Modelled on libdispatch, which implements them on macOS.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace platform::dispatch {

/// A queue that runs work. Copies refer to the same queue. An exception that escapes from a piece of work ends the
/// process.
class Queue {
 public:
  class Implementation;
  explicit Queue(std::shared_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
  Implementation& implementation() const { return *implementation_; }

 private:
  std::shared_ptr<Implementation> implementation_;
};

/// Runs one piece of work at a time, once the main thread is in dispatchMain(): on Linux on that thread, on macOS on
/// any thread.
Queue mainQueue();

/// Runs up to 64 pieces of work at once, on its own threads. Work starts in the order in which it was added.
Queue globalQueue();

/// Makes a queue that runs one piece of work at a time, on the threads of the global queue. Work runs even if its queue
/// has no owner left. The name is for debuggers.
Queue makeSerialQueue(const std::string& name);

/// Adds work to a queue and returns; does not run the work in the call. Any thread, including the queue's own threads.
void async(const Queue& queue, std::function<void()> work);

/// Adds work to a queue after a delay on the monotonic clock.
void after(std::chrono::nanoseconds delay, const Queue& queue, std::function<void()> work);

enum class Clock {
  monotonic,  ///< stops while the machine sleeps
  wall,       ///< civil time: continues while the machine sleeps; setting the clock moves the timers too
};

/// The times at which a timer fires.
struct Schedule {
  Clock clock = Clock::monotonic;
  std::chrono::nanoseconds start{0};  ///< from the timer's construction to its first firing
  /// Interval between the times at which firings are due. Firings missed while the queue was busy are merged into one.
  /// neverAgain: the timer fires once.
  std::chrono::nanoseconds period = neverAgain;
  /// How late the system may fire the timer to save power; at most half the period is used.
  std::chrono::nanoseconds leeway{0};

  static constexpr auto neverAgain = std::chrono::nanoseconds::max();
};

/// A timer that calls its handler on a queue, never twice at the same time. Destroying it cancels it. Each timer may be
/// used by one thread at a time; different threads may use different timers.
class TimerSource {
 public:
  class State;

  TimerSource() = default;
  /// Makes a timer whose time starts now but which does not fire before resume().
  TimerSource(const Queue& queue, const Schedule& schedule, std::function<void()> handler);
  TimerSource(TimerSource&&) = default;
  TimerSource& operator=(TimerSource&& other) noexcept;
  ~TimerSource() { cancel(); }

  explicit operator bool() const { return state_ != nullptr; }

  /// Lets the timer fire. Must be called at most once.
  void resume();

  /// Stops the timer and empties this object. A handler call already running on another thread continues; none starts
  /// after this. The handler is destroyed when no call of it is running.
  void cancel();

 private:
  std::shared_ptr<State> state_;
};

/// Whether the caller is on the process's main thread. On macOS, always false after dispatchMain() was called.
bool isMainThread();

/// Runs the main queue for ever. Called once, on the main thread. Only exit() ends the process.
[[noreturn]] void dispatchMain();

}  // namespace platform::dispatch
