// How many connections each user may make.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>

namespace platform::ipc {

/// A bucket for each user: 256 connections at once pass, as at the start of many programs or from a loop of a shell,
/// and 64 a second from then on. Time is given by the caller, and does not go back.
class ConnectionBudget {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Whether the user may have another connection.
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
