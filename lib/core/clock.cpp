#include "core/clock.h"

#include <chrono>

namespace cv {

namespace {

class SteadyClock : public IClock {
 public:
  int64_t now_us() const override {
    const auto since_epoch = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(since_epoch).count();
  }
};

}  // namespace

const IClock& steady_clock() {
  static const SteadyClock clock;
  return clock;
}

}  // namespace cv
