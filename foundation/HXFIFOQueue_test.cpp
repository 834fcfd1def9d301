#include "foundation/HXFIFOQueue.h"

#include <gmock/gmock.h>

#include <future>
#include <limits>
#include <string>

namespace {

using Queue = HXFIFOQueue<std::string>;

std::vector<Queue::Object> objects(std::initializer_list<const char*> texts) {
  std::vector<Queue::Object> result;
  for (const auto* text : texts) result.push_back(std::make_shared<std::string>(text));
  return result;
}

std::string texts(const Queue& queue) {
  std::string result;
  for (const auto& object : queue.allObjects()) result += *object;
  return result;
}

std::vector<std::shared_ptr<int>> numbers(int from, int to) {
  std::vector<std::shared_ptr<int>> result;
  for (int number = from; number < to; ++number) result.push_back(std::make_shared<int>(number));
  return result;
}

TEST(FIFOQueue, GrowsInOrderWhereverTheRingBegins) {
  HXFIFOQueue<int> queue;
  // The head is in the middle of the ring when the ring grows.
  queue.addObjectsFromArray(numbers(-1200, 800));
  for (int number = -1200; number < 0; ++number)
    EXPECT_EQ(*queue.dequeueObjectWithFilter([](const auto&, auto) { return true; }), number);
  queue.addObjectsFromArray(numbers(800, 5000));
  EXPECT_EQ(queue.count(), 5000u);
  int expected = 0;
  for (const auto& number : queue) EXPECT_EQ(*number, expected++);
  EXPECT_EQ(expected, 5000);
}

TEST(FIFOQueue, OnlyAdditionsDropWhatExceedsTheBound) {
  Queue queue;
  queue.setMaxQueueSize(3);
  queue.addObjectsFromArray(objects({"a", "b", "c", "d", "e", "f"}));
  queue.setMaxQueueSize(-1);
  queue.addObjectsFromArray(objects({"g", "h"}));
  queue.setMaxQueueSize(3);
  queue.addObjectsFromArray({});
  EXPECT_EQ(texts(queue), "defgh");
  queue.addObjectsFromArray(objects({"i"}));
  EXPECT_EQ(texts(queue), "ghi");

  // The queue releases the objects that it drops.
  HXFIFOQueue<int> ring;
  ring.setMaxQueueSize(1500);
  auto many = numbers(0, 3000);
  ring.addObjectsFromArray(many);
  EXPECT_EQ(ring.count(), 1500u);
  EXPECT_EQ(many[1499].use_count(), 1);
  EXPECT_EQ(many[1500].use_count(), 2);
  ring.removeAllObjects();
  EXPECT_EQ(many[1500].use_count(), 1);
}

TEST(FIFOQueue, PeeksAndEnumeratesFromBothEnds) {
  Queue queue;
  EXPECT_EQ(queue.peekObjectAtIndex(0), nullptr);
  queue.addObjectsFromArray(objects({"a", "b", "c"}));
  EXPECT_EQ(*queue.peekObjectAtIndex(-1), "c");
  EXPECT_EQ(*queue.peekObjectAtIndex(-3), "a");
  for (std::int64_t index : {std::int64_t{3}, std::int64_t{-4}, std::numeric_limits<std::int64_t>::min(),
                             std::numeric_limits<std::int64_t>::max()})
    EXPECT_EQ(queue.peekObjectAtIndex(index), nullptr);

  std::string seen;
  auto see = [&](const Queue::Object& object, std::uint64_t index, bool& stop) {
    seen += *object + std::to_string(index);
    stop = *object == "b";
  };
  queue.enumerateObjectsRecentEnqueuedLastUsingBlock(see);
  EXPECT_EQ(std::exchange(seen, ""), "a0b1");
  queue.enumerateObjectsRecentEnqueuedFirstUsingBlock(see);
  EXPECT_EQ(std::exchange(seen, ""), "c2b1");

  auto indices = queue.arrayUsingMapEnumerateBlock<std::uint64_t>(
      [](const auto& object, auto index) { return *object == "b" ? nullptr : std::make_shared<std::uint64_t>(index); });
  EXPECT_THAT(indices, testing::ElementsAre(testing::Pointee(0), testing::Pointee(2)));

  queue.enumerateObjectsRecentEnqueuedLastUsingBlock(nullptr);
  queue.enumerateObjectsToDeleteUsingBlock(nullptr);
  EXPECT_TRUE(queue.arrayUsingMapEnumerateBlock(nullptr).empty());
  EXPECT_EQ(queue.dequeueObjectWithFilter(nullptr), nullptr);
}

TEST(FIFOQueue, RemovesSelectedObjects) {
  Queue queue;
  auto added = objects({"a", "b", "c", "d", "e"});
  queue.addObjectsFromArray(added);
  queue.enumerateObjectsToDeleteUsingBlock([](const auto&, auto index, bool&) { return index == 1 || index == 3; });
  EXPECT_EQ(texts(queue), "ace");
  EXPECT_EQ(added[3].use_count(), 1);
  queue.enumerateObjectsToDeleteUsingBlock([](const auto& object, auto, bool& stop) {
    stop = *object == "c";
    return *object != "a";
  });
  EXPECT_EQ(texts(queue), "ae");
  EXPECT_EQ(queue.dequeueObjectWithFilter([](const auto& object, auto) { return *object == "e"; }), added[4]);
  EXPECT_EQ(queue.dequeueObjectWithFilter([](const auto&, auto) { return false; }), nullptr);
  EXPECT_EQ(texts(queue), "a");

  // Only the object itself is removed, not an equal one.
  auto same = added[0], equal = std::make_shared<std::string>("a");
  queue.addObjectsFromArray({equal, same, equal, same});
  queue.removeObjectIdenticalTo(same);
  queue.removeObjectIdenticalTo(nullptr);
  EXPECT_EQ(queue.allObjects(), (std::vector{equal, equal}));

  // A filter that throws leaves the queue unchanged and usable.
  EXPECT_THROW(queue.enumerateObjectsToDeleteUsingBlock([](const auto&, auto index, bool&) -> bool {
    if (index == 1) throw std::runtime_error("");
    return true;
  }),
               std::runtime_error);
  EXPECT_EQ(queue.count(), 2u);
}

TEST(FIFOQueue, FastEnumerationDeliversBatchesAndSeesChanges) {
  HXFIFOQueue<int> queue;
  queue.addObjectsFromArray(numbers(0, 40));
  HXFIFOQueue<int>::EnumerationState state;
  std::array<std::shared_ptr<int>, 30> buffer;
  EXPECT_EQ(queue.countByEnumeratingWithState(state, buffer), 30u);
  EXPECT_EQ(state.items, buffer.data());
  auto mutations = state.mutations->load();
  EXPECT_EQ(queue.countByEnumeratingWithState(state, buffer), 10u);
  EXPECT_EQ(*buffer[9], 39);
  EXPECT_EQ(queue.countByEnumeratingWithState(state, buffer), 0u);
  EXPECT_EQ(*state.mutations, mutations);

  auto walkAndChange = [&](auto change) {
    for (const auto& number : queue) {
      if (*number == 5) std::async(std::launch::async, change).get();
    }
  };
  EXPECT_NO_THROW(walkAndChange([&] { queue.dequeueObjectWithFilter([](auto&, auto) { return false; }); }));
  EXPECT_THROW(walkAndChange([&] { queue.addObjectsFromArray(numbers(40, 41)); }), HXEnumerationMutation);
  EXPECT_THROW(walkAndChange([&] { queue.dequeueObjectWithFilter([](auto&, auto) { return true; }); }),
               HXEnumerationMutation);
  EXPECT_THROW(walkAndChange([&] { queue.removeObjectIdenticalTo(queue.peekRecentEnqueued()); }),
               HXEnumerationMutation);
}

TEST(FIFOQueue, ManyThreadsLoseNothing) {
  HXFIFOQueue<int> queue;
  constexpr int perThread = 5000;
  std::vector<std::future<void>> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.push_back(std::async(std::launch::async, [&, thread] {
      for (int number = thread * perThread; number < (thread + 1) * perThread; number += 10)
        queue.addObjectsFromArray(numbers(number, number + 10));
    }));
    threads.push_back(std::async(std::launch::async, [&, thread] {
      for (int expected = thread * perThread; expected < (thread + 1) * perThread;) {
        auto isMine = [&](const auto& object, auto) { return *object / perThread == thread; };
        if (auto number = queue.dequeueObjectWithFilter(isMine)) {
          EXPECT_EQ(*number, expected++);
        }
        try {
          for (const auto& object : queue) EXPECT_GE(*object, 0);
        } catch (const HXEnumerationMutation&) {
        }
      }
    }));
  }
  for (auto& thread : threads) thread.get();
  EXPECT_EQ(queue.count(), 0u);
}

}  // namespace
