// Compares HXFIFOQueue with a std::deque under a mutex: appends, reads and drains one million elements.
#include <benchmark/benchmark.h>

#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <vector>

#include "foundation/HXFIFOQueue.h"

namespace {

constexpr std::size_t elementCount = 1'000'000;

using Object = std::shared_ptr<std::size_t>;

/// The operations of HXFIFOQueue on a std::deque under a mutex.
class LockedDeque {
 public:
  void addObjectsFromArray(const std::vector<Object>& objects) {
    std::lock_guard lock(mutex_);
    deque_.insert(deque_.end(), objects.begin(), objects.end());
  }
  Object peekObjectAtIndex(std::int64_t index) const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(index) < deque_.size() ? deque_[static_cast<std::size_t>(index)] : nullptr;
  }
  Object dequeue() {
    std::lock_guard lock(mutex_);
    if (deque_.empty()) return nullptr;
    Object object = std::move(deque_.front());
    deque_.pop_front();
    return object;
  }
  void removeAllObjects() {
    std::lock_guard lock(mutex_);
    deque_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::deque<Object> deque_;
};

class FIFOQueue : public HXFIFOQueue<std::size_t> {
 public:
  Object dequeue() {
    return dequeueObjectWithFilter([](const Object&, std::uint64_t) { return true; });
  }
};

/// All elements in arrays of `size`.
const std::vector<std::vector<Object>>& arraysOf(std::size_t size) {
  static std::map<std::size_t, std::vector<std::vector<Object>>> made;
  auto& arrays = made[size];
  for (std::size_t element = 0; arrays.size() < elementCount / size; ++element) {
    auto& array = arrays.emplace_back();
    while (array.size() < size) array.push_back(std::make_shared<std::size_t>(element));
  }
  return arrays;
}

template <class Queue>
void fill(Queue& queue, std::size_t arraySize) {
  for (const auto& array : arraysOf(arraySize)) queue.addObjectsFromArray(array);
}

/// Appends to a new queue, which has to allocate memory.
template <class Queue>
void appendToNew(benchmark::State& state) {
  auto arraySize = static_cast<std::size_t>(state.range(0));
  arraysOf(arraySize);
  for (auto _ : state) {
    auto queue = std::make_unique<Queue>();
    fill(*queue, arraySize);
    state.PauseTiming();
    queue.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(elementCount) * state.iterations());
}

/// Appends to a queue that has already been this long.
template <class Queue>
void append(benchmark::State& state) {
  auto arraySize = static_cast<std::size_t>(state.range(0));
  arraysOf(arraySize);
  Queue queue;
  fill(queue, arraySize);
  for (auto _ : state) {
    state.PauseTiming();
    queue.removeAllObjects();
    state.ResumeTiming();
    fill(queue, arraySize);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(elementCount) * state.iterations());
}

template <class Queue>
void peek(benchmark::State& state) {
  Queue queue;
  fill(queue, 1000);
  for (auto _ : state) {
    for (std::int64_t index = 0; index < static_cast<std::int64_t>(elementCount); ++index)
      benchmark::DoNotOptimize(queue.peekObjectAtIndex(index));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(elementCount) * state.iterations());
}

template <class Queue>
void drain(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto queue = std::make_unique<Queue>();
    fill(*queue, 1000);
    state.ResumeTiming();
    while (auto object = queue->dequeue()) benchmark::DoNotOptimize(object);
    state.PauseTiming();
    queue.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(elementCount) * state.iterations());
}

template <class Queue>
void drainAtOnce(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto queue = std::make_unique<Queue>();
    fill(*queue, 1000);
    state.ResumeTiming();
    queue->removeAllObjects();
    state.PauseTiming();
    queue.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(elementCount) * state.iterations());
}

BENCHMARK(appendToNew<LockedDeque>)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(appendToNew<FIFOQueue>)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(append<LockedDeque>)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(append<FIFOQueue>)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(peek<LockedDeque>)->Unit(benchmark::kMillisecond);
BENCHMARK(peek<FIFOQueue>)->Unit(benchmark::kMillisecond);
BENCHMARK(drain<LockedDeque>)->Unit(benchmark::kMillisecond);
BENCHMARK(drain<FIFOQueue>)->Unit(benchmark::kMillisecond);
BENCHMARK(drainAtOnce<LockedDeque>)->Unit(benchmark::kMillisecond);
BENCHMARK(drainAtOnce<FIFOQueue>)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int count, char** arguments) {
  // With a second thread, reference counting is atomic and the lock is not elided, as in the helper.
  std::promise<void> end;
  auto other = std::async(std::launch::async, [&] { end.get_future().wait(); });
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks();
  end.set_value();
}
