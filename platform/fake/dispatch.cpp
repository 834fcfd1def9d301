#include "platform/fake/dispatch.h"

#include <atomic>
#include <cstdlib>
#include <map>
#include <thread>
#include <utility>

#include "platform/dispatch/dispatch.h"

namespace platform {

using std::chrono::nanoseconds;

namespace {

const auto mainThread = std::this_thread::get_id();  // static initialisers run on the main thread
nanoseconds now{0};
std::multimap<nanoseconds, std::function<void()>> waiting;  // by due time

}  // namespace

void fake::resetQueues() {
  waiting.clear();
}

void fake::passTime(nanoseconds time) {
  const auto end = now + time;
  while (!waiting.empty() && waiting.begin()->first <= end) {
    auto next = waiting.extract(waiting.begin());
    now = next.key();
    next.mapped()();
  }
  now = end;
}

namespace dispatch {

class Queue::Implementation {};

class TimerSource::State {
 public:
  nanoseconds period;
  std::function<void()> handler;
  nanoseconds start;
  std::atomic<bool> isCancelled = false;  // another thread may cancel the timer
};

namespace {

void fire(const std::shared_ptr<TimerSource::State>& timer) {
  if (timer->isCancelled) return;
  if (timer->period != Schedule::neverAgain) waiting.emplace(now + timer->period, [timer] { fire(timer); });
  timer->handler();
}

}  // namespace

Queue mainQueue() {
  static Queue queue(std::make_shared<Queue::Implementation>());
  return queue;
}

Queue globalQueue() {
  return mainQueue();
}

Queue makeSerialQueue(const std::string&) {
  return mainQueue();
}

void async(const Queue& queue, std::function<void()> work) {
  after(nanoseconds(0), queue, std::move(work));
}

void after(nanoseconds delay, const Queue&, std::function<void()> work) {
  waiting.emplace(now + delay, std::move(work));
}

TimerSource::TimerSource(const Queue&, const Schedule& schedule, std::function<void()> handler)
    : state_(new State{.period = schedule.period, .handler = std::move(handler), .start = schedule.start}) {}

TimerSource& TimerSource::operator=(TimerSource&& other) noexcept {
  cancel();
  state_ = std::move(other.state_);
  return *this;
}

void TimerSource::resume() {
  waiting.emplace(now + state_->start, [state = state_] { fire(state); });
}

void TimerSource::cancel() {
  if (auto state = std::exchange(state_, nullptr)) state->isCancelled = true;
}

bool isMainThread() {
  return std::this_thread::get_id() == mainThread;
}

void dispatchMain() {
  std::abort();  // unit tests use passTime() instead
}

}  // namespace dispatch
}  // namespace platform
