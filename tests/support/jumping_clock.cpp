#include "support/jumping_clock.h"

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

#include "support/child_process.h"

namespace cv::test {

JumpingClock::JumpingClock(const Sandbox& sandbox)
    : m_path(sandbox.write_file("clock-shift", std::string(sizeof m_shift_s, '\0'))) {}

std::vector<std::string> JumpingClock::launcher() const {
  const char* given = std::getenv("ASAN_OPTIONS");
  // The address sanitizer wants to be the first library, and has no need to.
  return {"/usr/bin/env", "LD_PRELOAD=" + executable("libjumping_clock.so"),
          "JUMPING_CLOCK=" + m_path,
          "ASAN_OPTIONS=verify_asan_link_order=0:" + std::string(given == nullptr ? "" : given)};
}

void JumpingClock::jump(int64_t seconds) {
  m_shift_s += seconds;
  // In place and whole: the executable maps the file.
  const int file = open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
  const bool written = pwrite(file, &m_shift_s, sizeof m_shift_s, 0) == sizeof m_shift_s;
  close(file);
  if (!written) throw std::runtime_error("jumping clock: cannot write " + m_path);
}

int64_t JumpingClock::now() const { return std::time(nullptr) + m_shift_s; }

}  // namespace cv::test
