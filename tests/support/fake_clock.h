// A monotonic clock that stands still until a test moves it.
#pragma once

#include "core/clock.h"

namespace cv::test {

class FakeClock : public IClock {
 public:
  explicit FakeClock(int64_t start_us = 1000000000) : m_now_us(start_us) {}

  int64_t now_us() const override { return m_now_us; }
  void advance_us(int64_t by_us) { m_now_us += by_us; }
  void advance_seconds(int64_t by_seconds) { advance_us(by_seconds * 1000000); }

 private:
  int64_t m_now_us;
};

}  // namespace cv::test
