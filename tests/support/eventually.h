// Waiting for what another thread or process is about to do, bounded.
#pragma once

#include <chrono>
#include <thread>

namespace cv::test {

/// Calls `condition` every 5 ms until it holds or `seconds` have passed; whether it held.
template <typename Condition>
bool eventually(Condition condition, int seconds = 90) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace cv::test
