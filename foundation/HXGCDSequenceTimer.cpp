#include "foundation/HXGCDSequenceTimer.h"

#include <utility>

#include "foundation/detail/HXNanoseconds.h"

namespace dispatch = platform::dispatch;

std::shared_ptr<HXGCDSequenceTimer> HXGCDSequenceTimer::timerWithQueue(const Queue& queue,
                                                                       std::vector<double> intervalSequence, double,
                                                                       bool repeatLastTimer, bool usingWalltime,
                                                                       Handler handler) {
  std::shared_ptr<HXGCDSequenceTimer> timer(
      new HXGCDSequenceTimer(queue, std::move(intervalSequence), repeatLastTimer, usingWalltime, std::move(handler)));
  timer->next();
  return timer;
}

HXGCDSequenceTimer::HXGCDSequenceTimer(const Queue& queue, std::vector<double> intervalSequence, bool repeatLastTimer,
                                       bool usingWalltime, Handler handler)
    : _usingWalltime(usingWalltime),
      _repeatLastTimer(repeatLastTimer),
      _queue(queue),
      _handler(std::move(handler)),
      _intervalSequence(std::move(intervalSequence)) {}

void HXGCDSequenceTimer::next() {
  std::lock_guard guard(lock_);
  armNext();
}

void HXGCDSequenceTimer::invalidate() {
  std::lock_guard guard(lock_);
  _timer.cancel();
}

// Requires lock_.
void HXGCDSequenceTimer::armNext() {
  _timer.cancel();
  const auto count = static_cast<std::int64_t>(_intervalSequence.size());
  if (++_currentIdx >= count) {
    if (!_repeatLastTimer) return;
    _currentIdx = count - 1;
  }
  double interval = _intervalSequence.at(static_cast<std::size_t>(_currentIdx));
  bool isLast = _currentIdx == count - 1;
  dispatch::Schedule schedule{.clock = _usingWalltime ? dispatch::Clock::wall : dispatch::Clock::monotonic,
                              .start = hx::detail::nanosecondsOf(interval)};
  _timer = {_queue, schedule, [weak = weak_from_this(), interval, isLast] {
              if (auto self = weak.lock()) self->fire(interval, isLast);
            }};
  _timer.resume();
}

void HXGCDSequenceTimer::fire(double interval, bool isLast) {
  if (_handler) _handler(interval, isLast);
  std::lock_guard guard(lock_);
  // If the handler has invalidated the timer, _timer is empty.
  if (_timer) armNext();
}
