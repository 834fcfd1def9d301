// Timers that fire on a dispatch queue, and keyed debouncing.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/dispatch/dispatch.h"

/// A repeating or one-shot timer, armed when made. Any thread may use it, including its own handler.
/// - The caller owns it: a timer without an owner is destroyed and never fires.
/// - Times are in seconds, rounded down to whole nanoseconds.
/// - With `usingWalltime`, time also passes while the machine sleeps.
/// - An empty handler does nothing.
class HXGCDTimer : public std::enable_shared_from_this<HXGCDTimer> {
 public:
  using Queue = platform::dispatch::Queue;
  using Handler = std::function<void()>;

  /// Fires every `interval` seconds, first at once (`invokeImmediately`) or after one interval. The system may delay
  /// each firing by up to `leeway` seconds to save power.
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> repeatingTimerWithQueue(const Queue& queue, double interval,
                                                                           double leeway, bool invokeImmediately,
                                                                           Handler handler);
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> repeatingTimerWithQueue(const Queue& queue, double interval,
                                                                           double leeway, bool invokeImmediately,
                                                                           bool usingWalltime, Handler handler);

  /// Fires once, `after` seconds from now, and invalidates itself after its handler has returned.
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> onetimeTimerWithQueue(const Queue& queue, double after,
                                                                         Handler handler);
  [[nodiscard]] static std::shared_ptr<HXGCDTimer> onetimeTimerWithQueue(const Queue& queue, double after,
                                                                         bool usingWalltime, Handler handler);

  /// Runs an action on a queue `delay` seconds from now unless called again with the same identifier before then, so
  /// that only the last action of a burst runs. A call is itself queued: the delay begins, and an earlier action is
  /// replaced, when the queue runs the call.
  static void debounceWithDelay(double delay, const Queue& queue, const std::string& identifier, Handler action);

  ~HXGCDTimer();

  /// Stops the timer for good. A handler call already running on another thread continues. May be called more than
  /// once.
  void invalidate();

  /// Keeps the timer alive until it is invalidated.
  void holdReference();

  /// Whether the timer may still fire.
  bool isValid() const;

  /// Whether this is a one-shot timer whose handler has run.
  bool called() const;

 private:
  HXGCDTimer() = default;
  void startOnce(const Queue& queue, double after, bool usingWalltime, Handler handler);
  void start(platform::dispatch::TimerSource source);

  mutable std::mutex lock_;  // protects _timer, _called and _paused
  platform::dispatch::TimerSource _timer;
  bool _called = false;
  bool _hold = false;    // protected by the lock of the held timers
  bool _paused = false;  // whether the source is suspended; nothing suspends it at present
};
