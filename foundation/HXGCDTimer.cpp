#include "foundation/HXGCDTimer.h"

#include <cstdint>
#include <map>
#include <set>
#include <utility>

#include "foundation/detail/HXNanoseconds.h"

namespace dispatch = platform::dispatch;

namespace {

// HeldTimers and PendingTimers are never destroyed, because timers may fire while the process ends.

/// The timers kept by holdReference().
struct HeldTimers {
  std::mutex lock;
  std::set<std::shared_ptr<HXGCDTimer>> timers;

  static HeldTimers& instance() {
    static auto* held = new HeldTimers;
    return *held;
  }
};

/// The debounce timers that have not fired yet.
struct PendingTimers {
  struct Pending {
    std::uint64_t call;  // identifies the debounceWithDelay() call that armed the timer
    std::shared_ptr<HXGCDTimer> timer;
  };
  std::mutex lock;
  std::uint64_t calls = 0;
  std::map<std::string, Pending> timers;

  static PendingTimers& instance() {
    static auto* pending = new PendingTimers;
    return *pending;
  }
};

dispatch::Clock clockOf(bool usingWalltime) {
  return usingWalltime ? dispatch::Clock::wall : dispatch::Clock::monotonic;
}

}  // namespace

std::shared_ptr<HXGCDTimer> HXGCDTimer::repeatingTimerWithQueue(const Queue& queue, double interval, double leeway,
                                                                bool invokeImmediately, Handler handler) {
  return repeatingTimerWithQueue(queue, interval, leeway, invokeImmediately, false, std::move(handler));
}

std::shared_ptr<HXGCDTimer> HXGCDTimer::repeatingTimerWithQueue(const Queue& queue, double interval, double leeway,
                                                                bool invokeImmediately, bool usingWalltime,
                                                                Handler handler) {
  dispatch::Schedule schedule{.clock = clockOf(usingWalltime),
                              .start = hx::detail::nanosecondsOf(invokeImmediately ? 0 : interval),
                              .period = hx::detail::nanosecondsOf(interval),
                              .leeway = hx::detail::nanosecondsOf(leeway)};
  std::shared_ptr<HXGCDTimer> timer(new HXGCDTimer);
  timer->start({queue, schedule, handler ? std::move(handler) : [] {}});
  return timer;
}

std::shared_ptr<HXGCDTimer> HXGCDTimer::onetimeTimerWithQueue(const Queue& queue, double after, Handler handler) {
  return onetimeTimerWithQueue(queue, after, false, std::move(handler));
}

std::shared_ptr<HXGCDTimer> HXGCDTimer::onetimeTimerWithQueue(const Queue& queue, double after, bool usingWalltime,
                                                              Handler handler) {
  std::shared_ptr<HXGCDTimer> timer(new HXGCDTimer);
  timer->startOnce(queue, after, usingWalltime, std::move(handler));
  return timer;
}

void HXGCDTimer::debounceWithDelay(double delay, const Queue& queue, const std::string& identifier, Handler action) {
  dispatch::async(queue, [delay, queue, identifier, action = std::move(action)] {
    auto& pending = PendingTimers::instance();
    std::shared_ptr<HXGCDTimer> timer(new HXGCDTimer);
    std::shared_ptr<HXGCDTimer> previous;  // invalidated and destroyed after the lock is released
    std::uint64_t call;
    {
      std::lock_guard guard(pending.lock);
      call = ++pending.calls;
      auto& entry = pending.timers[identifier];
      previous = std::exchange(entry, {call, timer}).timer;
    }
    if (previous) previous->invalidate();

    timer->startOnce(queue, delay, false, [&pending, call, identifier, action] {
      std::shared_ptr<HXGCDTimer> fired;
      {
        std::lock_guard guard(pending.lock);
        auto found = pending.timers.find(identifier);
        // A later call may have replaced this one meanwhile on another thread.
        if (found == pending.timers.end() || found->second.call != call) return;
        fired = std::move(found->second.timer);
        pending.timers.erase(found);
      }
      if (action) action();
    });
  });
}

HXGCDTimer::~HXGCDTimer() {
  invalidate();
}

void HXGCDTimer::startOnce(const Queue& queue, double after, bool usingWalltime, Handler handler) {
  auto fire = [handler = std::move(handler), weak = weak_from_this()] {
    if (handler) handler();
    auto self = weak.lock();
    if (!self) return;
    {
      std::lock_guard guard(self->lock_);
      self->_called = true;
    }
    self->invalidate();
  };
  start({queue, {.clock = clockOf(usingWalltime), .start = hx::detail::nanosecondsOf(after)}, std::move(fire)});
}

void HXGCDTimer::start(dispatch::TimerSource source) {
  std::lock_guard guard(lock_);
  _timer = std::move(source);
  _timer.resume();
}

void HXGCDTimer::invalidate() {
  auto self = weak_from_this().lock();  // keeps this object alive until the end; null in the destructor
  dispatch::TimerSource source;         // destroyed, possibly with the handler, after the lock is released
  {
    std::lock_guard guard(lock_);
    source = std::move(_timer);
    if (std::exchange(_paused, false)) source.resume();
  }
  source.cancel();

  auto& held = HeldTimers::instance();
  std::lock_guard guard(held.lock);
  if (std::exchange(_hold, false)) held.timers.erase(self);
}

void HXGCDTimer::holdReference() {
  {
    auto& held = HeldTimers::instance();
    std::lock_guard guard(held.lock);
    held.timers.insert(shared_from_this());
    _hold = true;
  }
  // If the timer was invalidated before it was registered, nothing else would release it.
  if (!isValid()) invalidate();
}

bool HXGCDTimer::isValid() const {
  std::lock_guard guard(lock_);
  return static_cast<bool>(_timer);
}

bool HXGCDTimer::called() const {
  std::lock_guard guard(lock_);
  return _called;
}
