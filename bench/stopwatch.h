// Processor time of this thread: what else the machine does does not count, although it takes caches.
#pragma once

#include <time.h>

namespace cv::bench {

class Stopwatch {
 public:
  double seconds() const { return now() - m_start; }

 private:
  static double now() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }

  double m_start = now();
};

}  // namespace cv::bench
