// Timers. One thread adds the handlers of due timers to their queues.
#include <poll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <set>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"
#include "platform/base/thread.h"
#include "platform/dispatch/linux/queues.h"

namespace platform::dispatch {

using std::chrono::nanoseconds;

namespace {

constexpr auto forever = nanoseconds::max();
constexpr nanoseconds none{0};

/// The sum of two non-negative times, limited to `forever`.
nanoseconds add(nanoseconds a, nanoseconds b) {
  return a > forever - b ? forever : a + b;
}

timespec timespecOf(nanoseconds time) {
  auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  return {.tv_sec = seconds.count(), .tv_nsec = (time - seconds).count()};
}

}  // namespace

class TimerSource::State {
 public:
  State(const Queue& queue, const Schedule& schedule, std::function<void()> handler);

  const Queue queue;
  const std::function<void()> handler;
  const Clock clock;
  const nanoseconds period;
  const nanoseconds leeway;
  // The following are protected by the mutex of Timers.
  nanoseconds due;  // a time of `clock`
  bool isCancelled = false;
};

namespace {

using State = TimerSource::State;

/// The timers waiting on one clock.
class ClockTimers {
 public:
  explicit ClockTimers(clockid_t clock)
      : clock_(clock), descriptor_(timerfd_create(clock, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (!descriptor_) throw lastFailure("cannot make a timer");
  }

  int descriptor() const { return descriptor_.get(); }

  nanoseconds now() const {
    timespec time;
    clock_gettime(clock_, &time);
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
  }

  void insert(std::shared_ptr<State> timer) {
    waiting_.insert(std::move(timer));
    arm();
  }

  void remove(const std::shared_ptr<State>& timer) {
    waiting_.erase(timer);
    arm();
  }

  /// Removes and returns the first timer that is due; null if none is.
  std::shared_ptr<State> takeDue() {
    if (waiting_.empty() || (*waiting_.begin())->due > now()) return nullptr;
    return std::move(waiting_.extract(waiting_.begin()).value());
  }

  /// Arms the descriptor for the latest moment at which no timer exceeds its leeway, so that timers with overlapping
  /// leeways fire together.
  void arm() {
    auto moment = forever;
    for (const auto& timer : waiting_) {
      if (timer->due >= moment) break;
      moment = std::min(moment, add(timer->due, timer->leeway));
    }
    // A time of zero would disarm the descriptor.
    itimerspec time{.it_interval = {}, .it_value = timespecOf(std::max(moment, nanoseconds(1)))};
    timerfd_settime(descriptor_.get(), TFD_TIMER_ABSTIME, &time, nullptr);
  }

 private:
  struct Earlier {
    bool operator()(const std::shared_ptr<State>& a, const std::shared_ptr<State>& b) const {
      return std::pair(a->due, a.get()) < std::pair(b->due, b.get());
    }
  };

  clockid_t clock_;
  FileDescriptor descriptor_;
  std::set<std::shared_ptr<State>, Earlier> waiting_;
};

/// All timers. The first one starts the thread.
class Timers {
 public:
  static Timers& instance() {
    static auto* timers = new Timers;  // never destroyed, because its thread continues while the process ends
    return *timers;
  }

  nanoseconds now(Clock clock) { return timersOf(clock).now(); }

  void wait(const std::shared_ptr<State>& timer) {
    std::lock_guard lock(mutex_);
    if (timer->isCancelled) return;
    if (!isServed_) startThread([this] { serve(); }).value().detach();
    isServed_ = true;
    timersOf(timer->clock).insert(timer);
  }

  void cancel(const std::shared_ptr<State>& timer) {
    std::lock_guard lock(mutex_);
    timer->isCancelled = true;
    timersOf(timer->clock).remove(timer);
  }

 private:
  Timers() = default;

  ClockTimers& timersOf(Clock clock) { return clock == Clock::wall ? wall_ : monotonic_; }

  void serve() noexcept {
    std::array<pollfd, 2> descriptors{pollfd{monotonic_.descriptor(), POLLIN, 0},
                                      pollfd{wall_.descriptor(), POLLIN, 0}};
    while (true) {
      poll(descriptors.data(), descriptors.size(), -1);
      std::lock_guard lock(mutex_);
      for (auto* timers : {&monotonic_, &wall_}) {
        while (auto timer = timers->takeDue()) async(timer->queue, [this, timer] { fire(timer); });
        timers->arm();  // this also makes the descriptor unreadable again
      }
    }
  }

  // A timer is re-armed only after its handler has returned, so its handler never runs twice at once.
  void fire(const std::shared_ptr<State>& timer) {
    {
      std::lock_guard lock(mutex_);
      if (timer->isCancelled) return;
      if (timer->period != forever) {
        auto missed = std::max(none, now(timer->clock) - timer->due) / timer->period;
        timer->due = add(timer->due, (missed + 1) * timer->period);
      }
    }
    timer->handler();
    if (timer->period != forever) wait(timer);
  }

  std::mutex mutex_;
  ClockTimers monotonic_{CLOCK_MONOTONIC};
  // Not CLOCK_BOOTTIME: it also continues during sleep, but does not change when somebody sets the clock.
  ClockTimers wall_{CLOCK_REALTIME};
  bool isServed_ = false;
};

}  // namespace

TimerSource::State::State(const Queue& itsQueue, const Schedule& schedule, std::function<void()> itsHandler)
    : queue(itsQueue),
      handler(std::move(itsHandler)),
      clock(schedule.clock),
      period(std::max(schedule.period, nanoseconds(1))),
      leeway(std::clamp(schedule.leeway, none, period == forever ? forever : period / 2)),
      due(add(Timers::instance().now(clock), std::max(schedule.start, none))) {}

TimerSource::TimerSource(const Queue& queue, const Schedule& schedule, std::function<void()> handler)
    : state_(std::make_shared<State>(queue, schedule, std::move(handler))) {}

TimerSource& TimerSource::operator=(TimerSource&& other) noexcept {
  if (this == &other) return *this;
  cancel();
  state_ = std::move(other.state_);
  return *this;
}

void TimerSource::resume() {
  Timers::instance().wait(state_);
}

void TimerSource::cancel() {
  if (auto state = std::exchange(state_, nullptr)) Timers::instance().cancel(state);
}

void prepareTimers() {
  Timers::instance();
}

void after(nanoseconds delay, const Queue& queue, std::function<void()> work) {
  Timers::instance().wait(std::make_shared<State>(queue, Schedule{.start = delay}, std::move(work)));
}

}  // namespace platform::dispatch
