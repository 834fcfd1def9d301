// Conversion of seconds to nanoseconds.
#pragma once

#include <chrono>

namespace hx::detail {

/// Converts seconds to whole nanoseconds, rounding towards zero. Negative times and NaN give 0; times that are too long
/// give the longest representable one.
inline std::chrono::nanoseconds nanosecondsOf(double seconds) {
  using std::chrono::nanoseconds;
  double value = seconds * 1e9;
  if (!(value > 0)) return nanoseconds::zero();
  constexpr double limit = 9'223'372'036'854'775'808.0;  // 2^63
  return value < limit ? nanoseconds(static_cast<nanoseconds::rep>(value)) : nanoseconds::max();
}

}  // namespace hx::detail
