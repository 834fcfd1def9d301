// Timing of repeated calls.
#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace bench {

/// The value below which the given fraction of the values lies.
inline double quantile(std::vector<double> values, double fraction) {
  auto place = values.begin() + static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

inline double median(std::vector<double> values) {
  return quantile(std::move(values), 0.5);
}

/// The duration of one call in microseconds.
template <class Operation>
double microseconds(const Operation& operation) {
  auto start = std::chrono::steady_clock::now();
  operation();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

/// The median of `repetitions` calls after a tenth as many calls to warm up.
template <class Operation>
double medianMicroseconds(int repetitions, const Operation& operation) {
  for (int count = 0; count < repetitions / 10; ++count) operation();
  std::vector<double> times;
  for (int count = 0; count < repetitions; ++count) times.push_back(microseconds(operation));
  return median(std::move(times));
}

}  // namespace bench
