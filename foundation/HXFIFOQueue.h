// A thread-safe first-in-first-out queue of shared objects, with an optional bound.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "foundation/HXEnumerationMutation.h"

/// Holds references to objects in insertion order. Logical index 0 is the oldest.
///
/// Any thread may use it. Every operation except maxQueueSize(), setMaxQueueSize() and iterating holds the queue's lock
/// throughout. So a function passed to the queue must not call the same queue, and neither must the destructor of an
/// object that the queue drops. Given an empty function, an operation does nothing and returns null or an empty array.
///
/// Adding an object takes amortised constant time; reading the object at an index and removing the oldest one take
/// constant time. Removing another one takes time proportional to the number of later objects, in addition to finding
/// it. The queue keeps its own memory, though not the removed objects, until it is destroyed.
template <class Element>
class HXFIFOQueue {
 public:
  using Object = std::shared_ptr<Element>;

  /// The position of an enumeration by countByEnumeratingWithState(); a default-constructed one starts at the oldest
  /// object.
  struct EnumerationState {
    std::uint64_t state = 0;     ///< 0 before the first call
    Object* items = nullptr;     ///< the objects that the last call delivered
    std::uint64_t position = 0;  ///< logical index of the next object to deliver
    /// Changes whenever the queue changes. Set by the first call; valid as long as the queue lives.
    const std::atomic<std::uint64_t>* mutations = nullptr;
    std::uint64_t observed = 0;  ///< value of *mutations at the last call
  };

  class Iterator;

  HXFIFOQueue() { _buffer.push_back(makeBlock()); }
  ~HXFIFOQueue() { removeAllObjects(); }
  HXFIFOQueue(const HXFIFOQueue&) = delete;
  HXFIFOQueue& operator=(const HXFIFOQueue&) = delete;

  /// Appends objects, which must not be null. If a bound is set, the oldest objects are dropped to make room.
  void addObjectsFromArray(const std::vector<Object>& objects) {
    if (objects.empty()) return;
    std::lock_guard lock(_lock);
    const auto bound = maxQueueSize();
    for (std::span<const Object> rest = objects; !rest.empty();) {
      if (_count >= _capacity) {
        if (bound <= 0 || _count < static_cast<std::uint64_t>(bound)) {
          _growCapacity();
        } else {
          dropOldest();
        }
      }
      auto size = std::min<std::uint64_t>({rest.size(), _capacity - _count, blockSize - _tail % blockSize});
      std::uninitialized_copy_n(rest.begin(), size, &object(_tail));
      _tail = (_tail + size) & (_capacity - 1);
      _count += size;
      rest = rest.subspan(size);
    }
    while (bound > 0 && _count > static_cast<std::uint64_t>(bound)) dropOldest();
    countMutations(1);
  }

  std::uint64_t count() const {
    std::lock_guard lock(_lock);
    return _count;
  }

  /// The newest object; null if the queue is empty.
  Object peekRecentEnqueued() const { return peekObjectAtIndex(-1); }

  /// The object at an index: 0 is the oldest, -1 the newest. Null if the index is out of range.
  Object peekObjectAtIndex(std::int64_t index) const {
    std::lock_guard lock(_lock);
    if (index < 0) index += static_cast<std::int64_t>(_count);
    if (index < 0 || static_cast<std::uint64_t>(index) >= _count) return nullptr;
    return objectAtLogicalIndex(static_cast<std::uint64_t>(index));
  }

  /// All objects, the oldest first.
  std::vector<Object> allObjects() const {
    std::lock_guard lock(_lock);
    std::vector<Object> objects;
    objects.reserve(_count);
    for (std::uint64_t index = 0; index < _count; ++index) objects.push_back(objectAtLogicalIndex(index));
    return objects;
  }

  /// Called with an object, its logical index, and a flag, initially false; setting the flag ends the enumeration after
  /// this call.
  using EnumerationBlock = std::function<void(const Object& object, std::uint64_t index, bool& stop)>;

  void enumerateObjectsRecentEnqueuedLastUsingBlock(const EnumerationBlock& block) const {
    if (!block) return;
    std::lock_guard lock(_lock);
    bool stop = false;
    for (std::uint64_t index = 0; index < _count && !stop; ++index) block(objectAtLogicalIndex(index), index, stop);
  }

  void enumerateObjectsRecentEnqueuedFirstUsingBlock(const EnumerationBlock& block) const {
    if (!block) return;
    std::lock_guard lock(_lock);
    bool stop = false;
    for (std::uint64_t index = _count; index > 0 && !stop; --index)
      block(objectAtLogicalIndex(index - 1), index - 1, stop);
  }

  /// The results of calling the function with every object, the oldest first, without null results.
  template <class Result = Element>
  std::vector<std::shared_ptr<Result>> arrayUsingMapEnumerateBlock(
      const std::type_identity_t<std::function<std::shared_ptr<Result>(const Object& object, std::uint64_t index)>>&
          block) const {
    std::vector<std::shared_ptr<Result>> results;
    if (!block) return results;
    std::lock_guard lock(_lock);
    for (std::uint64_t index = 0; index < _count; ++index) {
      if (auto result = block(objectAtLogicalIndex(index), index)) results.push_back(std::move(result));
    }
    return results;
  }

  /// Removes and returns the oldest object for which the function returns true; null if there is none.
  Object dequeueObjectWithFilter(const std::function<bool(const Object& object, std::uint64_t index)>& block) {
    if (!block) return nullptr;
    std::lock_guard lock(_lock);
    for (std::uint64_t index = 0; index < _count; ++index) {
      if (!block(objectAtLogicalIndex(index), index)) continue;
      Object object = std::move(objectAtLogicalIndex(index));
      _removeObjectAtLogicalIndex(index);
      return object;
    }
    return nullptr;
  }

  /// Calls the function with each object, the oldest first, until the function sets the flag. Then removes every object
  /// for which the function returned true, also in the call that set the flag.
  void enumerateObjectsToDeleteUsingBlock(
      const std::function<bool(const Object& object, std::uint64_t index, bool& stop)>& block) {
    if (!block) return;
    std::lock_guard lock(_lock);
    std::vector<std::uint64_t> indices;
    bool stop = false;
    for (std::uint64_t index = 0; index < _count && !stop; ++index) {
      if (block(objectAtLogicalIndex(index), index, stop)) indices.push_back(index);
    }
    removeObjectsAtLogicalIndices(indices);
  }

  /// Removes every reference to this object; equal but distinct objects stay.
  void removeObjectIdenticalTo(const Object& object) {
    if (!object) return;
    enumerateObjectsToDeleteUsingBlock([&](const Object& other, std::uint64_t, bool&) { return other == object; });
  }

  void removeAllObjects() {
    std::lock_guard lock(_lock);
    destroyFrom(0);
    _head = _tail = _count = 0;
    countMutations(1);
  }

  /// The maximum number of objects; 0 (the initial value) and negative numbers mean no bound. A new bound takes effect
  /// with the next addition.
  std::int64_t maxQueueSize() const { return _maxQueueSize.load(std::memory_order_relaxed); }
  void setMaxQueueSize(std::int64_t size) { _maxQueueSize.store(size, std::memory_order_relaxed); }

  /// Copies the next references into a buffer and returns their number; 0 at the end. The lock is held only during each
  /// call. If *state.mutations changes between calls, the delivered objects come from different states of the queue.
  std::size_t countByEnumeratingWithState(EnumerationState& state, std::span<Object> objects) const {
    std::lock_guard lock(_lock);
    if (state.state == 0) {
      state.state = 1;
      state.mutations = &_mutationCounter;
      state.position = 0;
    }
    state.observed = _mutationCounter;
    std::size_t delivered = 0;
    while (delivered < objects.size() && state.position < _count)
      objects[delivered++] = objectAtLogicalIndex(state.position++);
    state.items = objects.data();
    return delivered;
  }

  /// Iterates from the oldest to the newest object. The iterator fetches 16 objects at a time and holds the lock only
  /// meanwhile. Incrementing throws HXEnumerationMutation if it fetches and the queue has changed since begin().
  Iterator begin() const { return Iterator(*this); }
  std::default_sentinel_t end() const { return {}; }

 private:
  /// Slots in a block. Blocks are small enough that malloc() makes them from memory freed before, and growing copies no
  /// block. So filling a new queue is as fast as filling a used one. For one large buffer, malloc() would take fresh
  /// pages from the kernel each time.
  static constexpr std::uint64_t blockSize = 1024;
  static_assert(std::has_single_bit(blockSize), "the capacity is a power of two");

  /// Raw memory; only slots in use hold an object.
  struct Block {
    alignas(Object) std::byte slots[blockSize * sizeof(Object)];
  };

  /// Not make_unique(), which would zero the memory.
  static std::unique_ptr<Block> makeBlock() { return std::unique_ptr<Block>(new Block); }

  Object& object(std::uint64_t slot) const {
    return reinterpret_cast<Object*>(_buffer[slot / blockSize]->slots)[slot % blockSize];
  }
  Object& objectAtLogicalIndex(std::uint64_t index) const { return object((_head + index) & (_capacity - 1)); }

  /// Destroys the objects from a logical index to the end.
  void destroyFrom(std::uint64_t index) {
    for (; index < _count; ++index) std::destroy_at(&objectAtLogicalIndex(index));
  }

  /// Writers hold the lock, so no atomic addition is needed.
  void countMutations(std::uint64_t mutations) {
    _mutationCounter.store(_mutationCounter.load(std::memory_order_relaxed) + mutations, std::memory_order_release);
  }

  /// Doubles a full ring. The head's block becomes the first. The newest objects, which lie in that block before the
  /// head, move behind the last old block.
  void _growCapacity() {
    const auto blocks = static_cast<std::ptrdiff_t>(_capacity / blockSize);
    while (_buffer.size() < 2 * _capacity / blockSize) _buffer.push_back(makeBlock());
    std::rotate(_buffer.begin(), _buffer.begin() + static_cast<std::ptrdiff_t>(_head / blockSize),
                _buffer.begin() + blocks);
    _head %= blockSize;
    std::uninitialized_move_n(&object(0), _head, &object(_capacity));
    std::destroy_n(&object(0), _head);
    _tail = _head + _count;
    _capacity *= 2;
  }

  void dropOldest() {
    std::destroy_at(&object(_head));
    _head = (_head + 1) & (_capacity - 1);
    --_count;
  }

  void _removeObjectAtLogicalIndex(std::uint64_t index) {
    if (index != 0) return removeObjectsAtLogicalIndices({index});
    dropOldest();
    countMutations(1);
  }

  /// Removes objects in one pass. The indices must ascend.
  void removeObjectsAtLogicalIndices(const std::vector<std::uint64_t>& indices) {
    if (indices.empty()) return;
    auto removed = indices.begin();
    auto kept = *removed;
    for (auto index = kept; index < _count; ++index) {
      if (removed != indices.end() && *removed == index) {
        ++removed;
      } else {
        objectAtLogicalIndex(kept++) = std::move(objectAtLogicalIndex(index));
      }
    }
    destroyFrom(kept);
    _count = kept;
    _tail = (_head + _count) & (_capacity - 1);
    countMutations(indices.size());
  }

  mutable std::mutex _lock;
  std::vector<std::unique_ptr<Block>> _buffer;
  std::uint64_t _capacity = blockSize;  ///< in slots
  std::uint64_t _head = 0;
  std::uint64_t _tail = 0;
  std::uint64_t _count = 0;
  std::atomic<std::uint64_t> _mutationCounter = 0;
  std::atomic<std::int64_t> _maxQueueSize = 0;
};

/// An input iterator over a queue, which must outlive it. For one thread at a time.
template <class Element>
class HXFIFOQueue<Element>::Iterator {
 public:
  using value_type = Object;
  using difference_type = std::ptrdiff_t;

  explicit Iterator(const HXFIFOQueue& queue) : queue_(&queue) {
    fetch();
    mutations_ = state_.observed;
  }

  const Object& operator*() const { return batch_[position_]; }
  Iterator& operator++() {
    if (++position_ < size_) return *this;
    fetch();
    if (state_.observed != mutations_) throw HXEnumerationMutation();
    return *this;
  }
  void operator++(int) { ++*this; }
  bool operator==(std::default_sentinel_t) const { return size_ == 0; }

 private:
  void fetch() {
    size_ = queue_->countByEnumeratingWithState(state_, batch_);
    position_ = 0;
  }

  const HXFIFOQueue* queue_;
  std::uint64_t mutations_ = 0;
  EnumerationState state_;
  std::array<Object, 16> batch_;
  std::size_t position_ = 0;
  std::size_t size_ = 0;
};
