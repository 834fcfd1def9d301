// Measured loops, and the sockets that look-ups are measured with.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

namespace bench {

inline double median(std::vector<double> values) {
  auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// How long one call takes, in microseconds.
template <class Operation>
double microseconds(const Operation& operation) {
  auto start = std::chrono::steady_clock::now();
  operation();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

/// The median of `repetitions` calls, after a tenth as many that do not count.
template <class Operation>
double medianMicroseconds(int repetitions, const Operation& operation) {
  for (int count = 0; count < repetitions / 10; ++count) operation();
  std::vector<double> times;
  for (int count = 0; count < repetitions; ++count) times.push_back(microseconds(operation));
  return median(std::move(times));
}

/// A socket and the process that owns it.
struct Case {
  std::string name;
  std::string protocol;  ///< "tcp" or "udp"
  std::string host;
  std::uint16_t port = 0;
  std::int32_t owner = 0;
};

/// Reads cases from standard input, one a line: name, protocol, host, port, owner.
inline std::vector<Case> readCases() {
  std::vector<Case> cases;
  for (Case next; std::cin >> next.name >> next.protocol >> next.host >> next.port >> next.owner;)
    cases.push_back(next);
  return cases;
}

}  // namespace bench
