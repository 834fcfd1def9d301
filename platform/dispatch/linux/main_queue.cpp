// The main queue, implemented on the main thread's event loop.
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cstdlib>
#include <deque>
#include <mutex>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"
#include "platform/dispatch/dispatch.h"
#include "platform/dispatch/linux/event_loop.h"
#include "platform/dispatch/linux/queues.h"

namespace platform::dispatch {

namespace {

/// Work for the main thread, and the eventfd that wakes its loop.
class MainQueue : public Queue::Implementation {
 public:
  MainQueue() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_) throw lastFailure("cannot make the main queue");
  }

  void add(Work work) override {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    if (work_.size() == 1) eventfd_write(wake_.get(), 1);
  }

  void serve() {
    source_ = EventSource::io(wake_.get(), EPOLLIN, [this](std::uint32_t) { runNext(); });
    // If the service manager supervises this process, the loop reports to the service manager at regular intervals
    // (sd_event_set_watchdog(3)).
    sd_event_set_watchdog(mainEventLoop(), 1);
    int status = sd_event_loop(mainEventLoop());
    std::exit(status < 0 ? EXIT_FAILURE : status);
  }

 private:
  // One piece of work per turn, so that descriptors and the watchdog are served in between, however much work is
  // waiting.
  void runNext() {
    Work work;
    {
      std::lock_guard lock(mutex_);
      work = std::move(work_.front());
      work_.pop_front();
      eventfd_t count;
      if (work_.empty()) eventfd_read(wake_.get(), &count);
    }
    work();
  }

  FileDescriptor wake_;
  EventSource source_;
  std::mutex mutex_;
  std::deque<Work> work_;
};

}  // namespace

Queue mainQueue() {
  // Never destroyed, because other threads may add work while the process ends.
  static auto* queue = new Queue(std::make_shared<MainQueue>());
  return *queue;
}

bool isMainThread() {
  // Cached, because every line of the log asks.
  static thread_local const bool isMain = gettid() == getpid();
  return isMain;
}

void dispatchMain() {
  prepareTimers();
  static_cast<MainQueue&>(mainQueue().implementation()).serve();
  std::abort();  // not reached: serve() does not return
}

}  // namespace platform::dispatch
