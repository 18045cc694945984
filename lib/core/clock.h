// The monotonic clock as a seam: whoever measures time-outs takes an IClock, so that tests move
// time by hand (support/fake_clock.h) and need no sleep.
#pragma once

#include <cstdint>

namespace cv {

class IClock {
 public:
  virtual ~IClock() = default;
  /// Microseconds of a clock that never goes back. Any thread.
  virtual int64_t now_us() const = 0;
};

/// The machine's steady clock; lives as long as the process.
const IClock& steady_clock();

}  // namespace cv
