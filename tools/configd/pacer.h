// Spreads bytes over time: at most so many a second, counted without bursts.
#pragma once

#include <algorithm>
#include <cstdint>

namespace cv::tools {

class Pacer {
 public:
  /// 0: no limit.
  explicit Pacer(uint64_t bytes_per_second) : m_bytes_per_second(bytes_per_second) {}

  /// When `bytes` may go, at `now_us` or later; what follows waits for as long as they take.
  int64_t reserve(int64_t now_us, uint64_t bytes) {
    const int64_t start_us = std::max(now_us, m_free_at_us);
    if (m_bytes_per_second != 0) {
      m_free_at_us = start_us + static_cast<int64_t>(bytes * 1000000 / m_bytes_per_second);
    }
    return start_us;
  }

 private:
  uint64_t m_bytes_per_second;
  int64_t m_free_at_us = INT64_MIN;
};

}  // namespace cv::tools
