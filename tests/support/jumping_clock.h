// A wall clock that a test makes jump under a running executable.
//
// Preloaded, libjumping_clock.so shifts the wall clock that the executable and its libraries read by what a
// file says, and moves their waits for a time of that clock along, as the kernel does when the clock
// is set. The monotonic clock goes on. What the C library stamps itself (syslog()) is not shifted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/sandbox.h"

namespace cv::test {

class JumpingClock {
 public:
  /// Not shifted yet. The file lies in the sandbox.
  explicit JumpingClock(const Sandbox& sandbox);

  /// What stands before a command line to run it on this clock.
  std::vector<std::string> launcher() const;
  /// At once, for whoever reads or waits for the time. Negative: back.
  void jump(int64_t seconds);
  /// What the executable sees, in seconds since the epoch.
  int64_t now() const;

 private:
  std::string m_path;
  int64_t m_shift_s = 0;
};

}  // namespace cv::test
