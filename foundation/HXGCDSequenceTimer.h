// A timer whose delays come from a list.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/dispatch/dispatch.h"

/// Fires once after each delay of a list, the delays being counted from the end of the handler's call before. Whoever
/// made it keeps it: one that nobody keeps is destroyed and never fires. Any thread may use it, its own handler
/// included.
class HXGCDSequenceTimer : public std::enable_shared_from_this<HXGCDSequenceTimer> {
 public:
  using Queue = platform::dispatch::Queue;
  /// Gets the delay, in seconds, that has passed, and whether it is the list's last.
  using Handler = std::function<void(double interval, bool isLast)>;

  /// A timer armed with the first delay. With `repeatLastTimer` the last delay is armed again and again; the list must
  /// then not be empty (std::out_of_range). The leeway is not used. On the wall clock time goes on while the machine
  /// sleeps.
  [[nodiscard]] static std::shared_ptr<HXGCDSequenceTimer> timerWithQueue(const Queue& queue,
                                                                          std::vector<double> intervalSequence,
                                                                          double leeway, bool repeatLastTimer,
                                                                          bool usingWalltime, Handler handler);

  /// Drops the delay that is armed and arms the one after it; without one the timer has ended.
  void next();

  /// Stops the timer. A call of the handler that has begun on another thread goes on. May be called again.
  void invalidate();

  /// Delays in seconds.
  const std::vector<double>& intervalSequence() const { return _intervalSequence; }

 private:
  HXGCDSequenceTimer(const Queue& queue, std::vector<double> intervalSequence, bool repeatLastTimer, bool usingWalltime,
                     Handler handler);
  void armNext();
  void fire(double interval, bool isLast);

  std::mutex lock_;  // of _currentIdx and _timer
  std::int64_t _currentIdx = -1;
  platform::dispatch::TimerSource _timer;
  const bool _usingWalltime;
  const bool _repeatLastTimer;
  const Queue _queue;
  const Handler _handler;
  const std::vector<double> _intervalSequence;
};
