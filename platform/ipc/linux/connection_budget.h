// Limits the rate at which each user makes connections.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>

namespace platform::ipc {

/// One token bucket per user: 256 connections at once, for example from many programs starting or a shell loop, then 64
/// per second. The caller provides the time, which must not go back.
class ConnectionBudget {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Uses a token of the user; false if there is none left.
  bool spend(uid_t user, Time now);

 private:
  struct Bucket {
    double connections;
    Time filled;
  };
  void forgetTheIdle(Time now);

  std::map<uid_t, Bucket> buckets_;
  std::size_t manyBuckets_ = 256;
};

}  // namespace platform::ipc
