// corvanth listen: receives reports and prints them.
#pragma once

#include <cstdint>

#include "tools/listen/report_text.h"

namespace cv::tools {

struct ListenOptions {
  uint16_t port = 0;
  bool table = false;
  uint64_t count = 0;    // 0: no end
  double timeout_s = 0;  // 0: no end
};

/// Ends with the count reached, the time over, or a stop signal. An exit status: failed when the time
/// was over before the count was reached.
int run_listen(const ListenOptions& options);

}  // namespace cv::tools
