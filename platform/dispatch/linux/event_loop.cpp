#include "platform/dispatch/linux/event_loop.h"

#include <signal.h>
#include <systemd/sd-daemon.h>

#include <chrono>

#include "platform/base/result.h"

namespace platform {

// A running call keeps the state alive, so a handler may destroy its own source.
struct EventSource::State : std::enable_shared_from_this<State> {
  std::function<void(std::uint32_t)> handler;
  sd_event_source* source = nullptr;

  // Not noexcept: an exception ends the process either way, but this way the stack of the throw is still there to be
  // logged.
  static void call(void* userdata, std::uint32_t events) {
    auto self = static_cast<State*>(userdata)->shared_from_this();
    self->handler(events);
  }
};

// Detaches at once, even while the handler runs: the descriptor may be closed next and its number reused.
EventSource::~EventSource() {
  if (state_) sd_event_source_disable_unref(state_->source);
}

EventSource& EventSource::operator=(EventSource&& other) noexcept {
  EventSource old(std::move(*this));
  state_ = std::move(other.state_);
  return *this;
}

sd_event* mainEventLoop() {
  static sd_event* loop = [] {
    sd_event* made = nullptr;
    check(sd_event_default(&made), "cannot make the main event loop");
    return made;
  }();
  return loop;
}

void feedWatchdog() {
  using std::chrono::steady_clock;
  static steady_clock::time_point last;
  const auto now = steady_clock::now();
  if (now - last < std::chrono::seconds(1)) return;
  last = now;
  sd_notify(0, "WATCHDOG=1");
}

EventSource EventSource::io(int descriptor, std::uint32_t events, std::function<void(std::uint32_t)> handler) {
  auto state = std::make_shared<State>();
  state->handler = std::move(handler);
  auto callback = [](sd_event_source*, int, std::uint32_t ready, void* userdata) {
    State::call(userdata, ready);
    return 0;
  };
  check(sd_event_add_io(mainEventLoop(), &state->source, descriptor, events, callback, state.get()),
        "cannot watch a descriptor");
  return EventSource(std::move(state));
}

EventSource EventSource::signal(int number, std::function<void()> handler) {
  auto state = std::make_shared<State>();
  state->handler = [handler = std::move(handler)](std::uint32_t) { handler(); };
  auto callback = [](sd_event_source*, const signalfd_siginfo*, void* userdata) {
    State::call(userdata, 0);
    return 0;
  };
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, number);
  check(-pthread_sigmask(SIG_BLOCK, &set, nullptr), "cannot block a signal");
  check(sd_event_add_signal(mainEventLoop(), &state->source, number, callback, state.get()), "cannot watch a signal");
  return EventSource(std::move(state));
}

EventSource EventSource::timer(std::function<void()> handler) {
  auto state = std::make_shared<State>();
  state->handler = [handler = std::move(handler)](std::uint32_t) { handler(); };
  auto callback = [](sd_event_source*, std::uint64_t, void* userdata) {
    State::call(userdata, 0);
    return 0;
  };
  check(sd_event_add_time(mainEventLoop(), &state->source, CLOCK_MONOTONIC, UINT64_MAX, 0, callback, state.get()),
        "cannot make a timer");
  return EventSource(std::move(state));
}

EventSource EventSource::exit(std::function<void()> handler) {
  auto state = std::make_shared<State>();
  state->handler = [handler = std::move(handler)](std::uint32_t) { handler(); };
  auto callback = [](sd_event_source*, void* userdata) {
    State::call(userdata, 0);
    return 0;
  };
  check(sd_event_add_exit(mainEventLoop(), &state->source, callback, state.get()), "cannot watch the loop's end");
  return EventSource(std::move(state));
}

void EventSource::startTimer(std::uint64_t microseconds) {
  check(sd_event_source_set_time_relative(state_->source, microseconds), "cannot set a timer");
  check(sd_event_source_set_enabled(state_->source, SD_EVENT_ONESHOT), "cannot start a timer");
}

void EventSource::setEvents(std::uint32_t events) {
  check(sd_event_source_set_io_events(state_->source, events), "cannot watch a descriptor");
}

}  // namespace platform
