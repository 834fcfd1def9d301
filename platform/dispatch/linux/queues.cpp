// The global queue and the serial queues.
#include "platform/dispatch/linux/queues.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/base/thread.h"

namespace platform::dispatch {

namespace {

constexpr std::size_t maximumWorkers = 64;
constexpr std::chrono::seconds idleTime(1);  // how long an idle worker waits for work before its thread ends

class GlobalQueue : public Queue::Implementation {
 public:
  void add(Work work) override {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    if (work_.size() <= idle_) return wake_.notify_one();
    if (workers_ < maximumWorkers) addWorker();
  }

 private:
  void addWorker() {
    auto worker = startThread([this] { serve(); });
    if (!worker && workers_ > 0) return;  // one of the other workers will run it
    worker.value().detach();
    ++workers_;
  }

  void serve() noexcept {
    std::unique_lock lock(mutex_);
    while (true) {
      ++idle_;
      bool hasWork = wake_.wait_for(lock, idleTime, [this] { return !work_.empty(); });
      --idle_;
      if (!hasWork) break;
      {
        auto work = std::move(work_.front());
        work_.pop_front();
        lock.unlock();
        work();
      }
      lock.lock();
    }
    --workers_;
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Work> work_;
  std::size_t workers_ = 0;
  std::size_t idle_ = 0;  // waiting workers, and woken ones that have not taken work yet
};

class SerialQueue : public Queue::Implementation, public std::enable_shared_from_this<SerialQueue> {
 public:
  void add(Work work) override {
    {
      std::lock_guard lock(mutex_);
      work_.push_back(std::move(work));
      if (std::exchange(isRunning_, true)) return;
    }
    async(globalQueue(), [self = shared_from_this()] { self->run(); });
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (!work_.empty()) {
      {
        auto work = std::move(work_.front());
        work_.pop_front();
        lock.unlock();
        work();
      }
      lock.lock();
    }
    isRunning_ = false;
  }

  std::mutex mutex_;
  std::deque<Work> work_;
  bool isRunning_ = false;  // or is about to run
};

}  // namespace

Queue globalQueue() {
  // Never destroyed, because its threads continue while the process ends.
  static auto* queue = new Queue(std::make_shared<GlobalQueue>());
  return *queue;
}

Queue makeSerialQueue(const std::string&) {
  return Queue(std::make_shared<SerialQueue>());
}

void async(const Queue& queue, std::function<void()> work) {
  queue.implementation().add(std::move(work));
}

}  // namespace platform::dispatch
