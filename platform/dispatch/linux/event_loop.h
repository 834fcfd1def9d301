// The sd-event loop that carries the main queue; for the Linux platform's own use, on the main thread.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace platform {

/// The loop of the main thread, made on first use.
sd_event* mainEventLoop();

/// Tells a service manager that watches over this process (sd_watchdog_enabled(3)) that it is at work, at most once a
/// second: for work that may keep the loop from its next turn for long, after each part of it. Main thread.
void feedWatchdog();

/// A source of events on the main loop. What fails throws a Failure: without its events the program cannot go on.
/// A source is detached and its handler destroyed with this object, which the handler itself
/// may bring about.
class EventSource {
 public:
  /// Calls `handler` with the ready EPOLL… events whenever the descriptor has one of `events`. The descriptor stays the
  /// caller's and outlives the source.
  static EventSource io(int descriptor, std::uint32_t events, std::function<void(std::uint32_t)> handler);

  /// Calls `handler` on delivery of a signal, which is blocked for ordinary delivery from here on.
  static EventSource signal(int number, std::function<void()> handler);

  /// Calls `handler` once for each startTimer(). Made beforehand, since making one may fail.
  static EventSource timer(std::function<void()> handler);

  /// Calls `handler` when the loop is told to end, and before it does.
  static EventSource exit(std::function<void()> handler);

  EventSource() = default;
  EventSource(EventSource&&) = default;
  EventSource& operator=(EventSource&& other) noexcept;
  ~EventSource();

  /// Has a timer() fire `microseconds` from now on the monotonic clock.
  void startTimer(std::uint64_t microseconds);

  /// Changes which events an io() source waits for.
  void setEvents(std::uint32_t events);

 private:
  struct State;
  explicit EventSource(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

}  // namespace platform
