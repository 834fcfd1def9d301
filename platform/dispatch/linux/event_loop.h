// The sd-event loop behind the main queue. Only for the platform layer on Linux, on the main thread.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace platform {

/// The main thread's loop, made on first use.
sd_event* mainEventLoop();

/// Tells the service manager's watchdog (sd_watchdog_enabled(3)) that this process is responsive, at most once a
/// second. Call it after each part of any work that may delay the loop's next iteration for long. Main thread.
void feedWatchdog();

/// A source of events on the main loop. Destroying it detaches it and destroys its handler. A handler may destroy its
/// own source. All functions throw a Failure on errors, because the program cannot go on without its events.
class EventSource {
 public:
  /// Calls `handler` with the EPOLL… flags whenever the descriptor is ready for one of `events`. The descriptor remains
  /// the caller's and must outlive the source.
  static EventSource io(int descriptor, std::uint32_t events, std::function<void(std::uint32_t)> handler);

  /// Calls `handler` when the signal arrives. The signal is blocked for ordinary delivery from now on.
  static EventSource signal(int number, std::function<void()> handler);

  /// Calls `handler` once after startTimer(). Starting the timer again before that only changes the time. Make timers
  /// in advance, because making a timer may fail.
  static EventSource timer(std::function<void()> handler);

  /// Calls `handler` when the loop has been told to end and before it ends.
  static EventSource exit(std::function<void()> handler);

  EventSource() = default;
  EventSource(EventSource&&) = default;
  EventSource& operator=(EventSource&& other) noexcept;
  ~EventSource();

  /// Makes a timer() fire `microseconds` from now on the monotonic clock.
  void startTimer(std::uint64_t microseconds);

  /// Changes which events an io() source waits for.
  void setEvents(std::uint32_t events);

 private:
  struct State;
  explicit EventSource(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

}  // namespace platform
