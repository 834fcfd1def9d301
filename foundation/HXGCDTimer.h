// Timers that fire on a dispatch queue, and keyed debouncing.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/dispatch/dispatch.h"

/// A repeating or one-shot timer, armed when it is made. Whoever made it keeps it: a timer that nobody keeps is
/// destroyed and never fires. All times are in seconds and cut to whole nanoseconds. A timer that uses the wall clock
/// goes on while the machine sleeps. An empty handler does nothing. Any thread may use it, its own handler included.
class HXGCDTimer : public std::enable_shared_from_this<HXGCDTimer> {
 public:
  using Queue = platform::dispatch::Queue;
  using Handler = std::function<void()>;

  /// Fires every `interval` seconds, for the first time at once or one interval from now, each time up to `leeway`
  /// seconds late for the system's convenience.
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> repeatingTimerWithQueue(const Queue& queue, double interval,
                                                                           double leeway, bool invokeImmediately,
                                                                           Handler handler);
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> repeatingTimerWithQueue(const Queue& queue, double interval,
                                                                           double leeway, bool invokeImmediately,
                                                                           bool usingWalltime, Handler handler);

  /// Fires once, `after` seconds from now, and invalidates itself when its handler has returned.
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> onetimeTimerWithQueue(const Queue& queue, double after,
                                                                         Handler handler);
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> onetimeTimerWithQueue(const Queue& queue, double after,
                                                                         bool usingWalltime, Handler handler);

  /// Runs an action on a queue `delay` seconds from now, unless called again with an equal identifier before: of a
  /// burst of calls only the last one's action runs. Calls are ordered by their queue.
  static void debounceWithDelay(double delay, const Queue& queue, const std::string& identifier, Handler action);

  ~HXGCDTimer();

  /// Stops the timer for good. A call of the handler that has begun on another thread goes on. May be called again.
  void invalidate();

  /// Keeps the timer until it is invalidated.
  void holdReference();

  /// Whether it may still fire.
  bool isValid() const;

  /// Whether it is a one-shot timer whose handler has run.
  bool called() const;

 private:
  HXGCDTimer() = default;
  void startOnce(const Queue& queue, double after, bool usingWalltime, Handler handler);
  void start(platform::dispatch::TimerSource source);

  mutable std::mutex lock_;  // of _timer, _called and _paused
  platform::dispatch::TimerSource _timer;
  bool _called = false;
  bool _hold = false;    // under the lock of the held timers
  bool _paused = false;  // the source is suspended; no operation does that so far
};
