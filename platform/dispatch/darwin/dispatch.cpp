#include "platform/dispatch/dispatch.h"

#include <pthread.h>

#include <algorithm>
#include <cstdlib>

#include "platform/base/result.h"
#include "platform/dispatch/darwin/dispatch_reference.h"

namespace platform::dispatch {

using std::chrono::nanoseconds;

class Queue::Implementation {
 public:
  explicit Implementation(darwin::DispatchQueue queue) : queue_(std::move(queue)) {}
  dispatch_queue_t queue() const { return queue_.get(); }

 private:
  darwin::DispatchQueue queue_;
};

namespace {

using Work = std::function<void()>;

constexpr nanoseconds none{0};

// These are noexcept so that an exception escaping from a piece of work ends the process.
void runOnce(void* pointer) noexcept {
  std::unique_ptr<Work> work(static_cast<Work*>(pointer));
  (*work)();
}
void run(void* work) noexcept {
  (*static_cast<Work*>(work))();
}
void destroy(void* work) noexcept {
  delete static_cast<Work*>(work);
}

Queue makeQueue(darwin::DispatchQueue queue) {
  return Queue(std::make_shared<Queue::Implementation>(std::move(queue)));
}

/// A delay that is too long gives a time that never comes.
dispatch_time_t timeAfter(Clock clock, nanoseconds delay) {
  auto delta = std::max(delay, none).count();
  return clock == Clock::wall ? dispatch_walltime(nullptr, delta) : dispatch_time(DISPATCH_TIME_NOW, delta);
}

}  // namespace

class TimerSource::State {
 public:
  State(const Queue& queue, const Schedule& schedule, std::function<void()> handler)
      : source_(darwin::DispatchSource::adopt(
            dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue.implementation().queue()))) {
    if (!source_) throw lastFailure("cannot make a timer");
    // libdispatch runs the cancel handler when no call of the event handler is running.
    dispatch_set_context(source_.get(), new Work(std::move(handler)));
    dispatch_source_set_event_handler_f(source_.get(), run);
    dispatch_source_set_cancel_handler_f(source_.get(), destroy);
    bool repeats = schedule.period != Schedule::neverAgain;
    auto period = std::max(schedule.period, nanoseconds(1));
    auto leeway = std::clamp(schedule.leeway, none, repeats ? period / 2 : Schedule::neverAgain);
    dispatch_source_set_timer(source_.get(), timeAfter(schedule.clock, schedule.start),
                              repeats ? static_cast<std::uint64_t>(period.count()) : DISPATCH_TIME_FOREVER,
                              static_cast<std::uint64_t>(leeway.count()));
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // A source must be activated before its release; activating it again has no effect.
  ~State() {
    dispatch_source_cancel(source_.get());
    resume();
  }

  void resume() { dispatch_activate(source_.get()); }

 private:
  darwin::DispatchSource source_;
};

TimerSource::TimerSource(const Queue& queue, const Schedule& schedule, std::function<void()> handler)
    : state_(std::make_shared<State>(queue, schedule, std::move(handler))) {}

TimerSource& TimerSource::operator=(TimerSource&& other) noexcept {
  state_ = std::move(other.state_);
  return *this;
}

void TimerSource::resume() {
  state_->resume();
}

void TimerSource::cancel() {
  state_.reset();
}

Queue mainQueue() {
  return makeQueue(darwin::DispatchQueue::share(dispatch_get_main_queue()));
}

Queue globalQueue() {
  return makeQueue(darwin::DispatchQueue::share(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0)));
}

Queue makeSerialQueue(const std::string& name) {
  return makeQueue(darwin::DispatchQueue::adopt(dispatch_queue_create(name.c_str(), DISPATCH_QUEUE_SERIAL)));
}

void async(const Queue& queue, std::function<void()> work) {
  dispatch_async_f(queue.implementation().queue(), new Work(std::move(work)), runOnce);
}

void after(nanoseconds delay, const Queue& queue, std::function<void()> work) {
  dispatch_after_f(timeAfter(Clock::monotonic, delay), queue.implementation().queue(), new Work(std::move(work)),
                   runOnce);
}

bool isMainThread() {
  return pthread_main_np() != 0;
}

void dispatchMain() {
  dispatch_main();
}

}  // namespace platform::dispatch
