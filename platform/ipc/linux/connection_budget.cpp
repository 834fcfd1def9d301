#include "platform/ipc/linux/connection_budget.h"

#include <algorithm>

namespace platform::ipc {

namespace {

constexpr double capacity = 256;
constexpr double refill = 64;                  // per second
constexpr std::chrono::minutes timeToFill(1);  // upper bound of the time to fill a bucket

}  // namespace

bool ConnectionBudget::spend(uid_t user, Time now) {
  if (buckets_.size() >= manyBuckets_) forgetTheIdle(now);
  auto& bucket = buckets_.try_emplace(user, Bucket{capacity, now}).first->second;
  auto passed = std::chrono::duration<double>(now - bucket.filled).count();
  bucket.connections = std::min(capacity, bucket.connections + refill * passed);
  bucket.filled = now;
  if (bucket.connections < 1) return false;
  --bucket.connections;
  return true;
}

// Bounds the memory, because one person may have many user IDs (subuid(5)). Runs only when the number has doubled.
void ConnectionBudget::forgetTheIdle(Time now) {
  std::erase_if(buckets_, [now](const auto& entry) { return now - entry.second.filled >= timeToFill; });
  manyBuckets_ = std::max<std::size_t>(256, 2 * buckets_.size());
}

}  // namespace platform::ipc
