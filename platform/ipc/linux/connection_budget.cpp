#include "platform/ipc/linux/connection_budget.h"

#include <algorithm>

namespace platform::ipc {

namespace {

constexpr double capacity = 256;
constexpr double refill = 64;  // a second
constexpr std::chrono::minutes betweenWords(1);
constexpr std::size_t manyBuckets = 256;

}  // namespace

ConnectionBudget::Verdict ConnectionBudget::spend(uid_t user, Time now) {
  if (buckets_.size() >= manyBuckets) forgetTheIdle(now);
  auto& bucket = buckets_.try_emplace(user, Bucket{capacity, now, now - betweenWords}).first->second;
  auto passed = std::chrono::duration<double>(now - bucket.filled).count();
  bucket.connections = std::min(capacity, bucket.connections + refill * passed);
  bucket.filled = now;
  if (bucket.connections >= 1) {
    --bucket.connections;
    return Verdict::admitted;
  }
  if (now - bucket.said < betweenWords) return Verdict::refused;
  bucket.said = now;
  return Verdict::refusedAndToBeSaid;
}

// A user may have many IDs (subuid(5)).
void ConnectionBudget::forgetTheIdle(Time now) {
  std::erase_if(buckets_, [now](const auto& entry) {
    return now - entry.second.filled >= betweenWords && now - entry.second.said >= betweenWords;
  });
}

}  // namespace platform::ipc
