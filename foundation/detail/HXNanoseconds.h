// Times in seconds for interfaces that want nanoseconds.
#pragma once

#include <chrono>

namespace hx::detail {

/// Whole nanoseconds of a time in seconds, cut off; 0 for a negative time, the longest there is for one that is too
/// long.
inline std::chrono::nanoseconds nanosecondsOf(double seconds) {
  using std::chrono::nanoseconds;
  double value = seconds * 1e9;
  if (!(value > 0)) return nanoseconds::zero();
  constexpr double limit = 9'223'372'036'854'775'808.0;  // 2^63
  return value < limit ? nanoseconds(static_cast<nanoseconds::rep>(value)) : nanoseconds::max();
}

}  // namespace hx::detail
