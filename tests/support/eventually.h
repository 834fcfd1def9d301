// Waits for a condition in tests.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

/// Waits until a condition holds. Returns false after ten seconds.
inline bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}
