// A wall clock that a test makes jump under a running executable.
//
// Preloaded, libjumping_clock.so shifts the wall clock that the executable and its libraries read by what a
// file says, and moves their waits for a time of that clock along, as the kernel does when the clock
// is set. The monotonic clock goes on. What the C library stamps itself (syslog()) is not shifted.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace cv::test {

class JumpingClock {
 public:
  /// Not shifted yet. The file lies in the sandbox.
  explicit JumpingClock(const Sandbox& sandbox)
      : m_path(sandbox.write_file("clock-shift", std::string(sizeof m_shift_s, '\0'))) {}

  /// What stands before a command line to run it on this clock.
  std::vector<std::string> launcher() const {
    const char* given = std::getenv("ASAN_OPTIONS");
    // The address sanitizer wants to be the first library, and has no need to.
    return {"/usr/bin/env", "LD_PRELOAD=" + executable("libjumping_clock.so"),
            "JUMPING_CLOCK=" + m_path,
            "ASAN_OPTIONS=verify_asan_link_order=0:" + std::string(given == nullptr ? "" : given)};
  }

  /// At once, for whoever reads or waits for the time. Negative: back.
  void jump(int64_t seconds) {
    m_shift_s += seconds;
    // In place and whole: the executable maps the file.
    std::fstream file(m_path, std::ios::binary | std::ios::in | std::ios::out);
    file.write(reinterpret_cast<const char*>(&m_shift_s), sizeof m_shift_s);
  }
  /// What the executable sees, in seconds since the epoch.
  int64_t now() const {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);  // std::time() is up to a tick behind it
    return time.tv_sec + m_shift_s;
  }

 private:
  std::string m_path;
  int64_t m_shift_s = 0;
};

}  // namespace cv::test
