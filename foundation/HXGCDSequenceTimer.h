// A timer whose delays come from a list.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/dispatch/dispatch.h"

/// Fires once after each delay of a list; each delay counts from the end of the previous handler call. The caller owns
/// it: a timer without an owner is destroyed and never fires. Any thread may use it, including its own handler.
class HXGCDSequenceTimer : public std::enable_shared_from_this<HXGCDSequenceTimer> {
 public:
  using Queue = platform::dispatch::Queue;
  /// Receives the delay that has passed, in seconds, and whether it is the last of the list.
  using Handler = std::function<void(double interval, bool isLast)>;

  /// Makes a timer and arms it with the first delay. With `repeatLastTimer` the last delay is repeated for ever; the
  /// list must then not be empty (std::out_of_range). The leeway is ignored. With `usingWalltime`, time also passes
  /// while the machine sleeps.
  [[nodiscard]] static std::shared_ptr<HXGCDSequenceTimer> timerWithQueue(const Queue& queue,
                                                                          std::vector<double> intervalSequence,
                                                                          double leeway, bool repeatLastTimer,
                                                                          bool usingWalltime, Handler handler);

  /// Cancels the current delay and arms the next one. After the last delay, ends the timer or, with `repeatLastTimer`,
  /// arms the last delay again. The end of a handler call does the same, so a call in the handler skips one delay.
  void next();

  /// Stops the timer until next() is called. A handler call already running on another thread continues. May be called
  /// more than once.
  void invalidate();

  /// The delays, in seconds.
  const std::vector<double>& intervalSequence() const { return _intervalSequence; }

 private:
  HXGCDSequenceTimer(const Queue& queue, std::vector<double> intervalSequence, bool repeatLastTimer, bool usingWalltime,
                     Handler handler);
  void armNext();
  void fire(double interval, bool isLast);

  std::mutex lock_;  // protects _currentIdx and _timer
  std::int64_t _currentIdx = -1;
  platform::dispatch::TimerSource _timer;
  const bool _usingWalltime;
  const bool _repeatLastTimer;
  const Queue _queue;
  const Handler _handler;
  const std::vector<double> _intervalSequence;
};
