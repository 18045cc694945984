// What `corvanth load` prints in the end.
#pragma once

#include <cstdint>
#include <string>

#include "tools/load/load_verdict.h"

namespace cv::tools {

struct LoadSummary {
  uint32_t calls_at_once = 0;
  double seconds = 0;
  uint64_t packets_sent = 0;
  uint64_t packets_refused = 0;
  uint64_t packets_left_out = 0;  // on purpose
  uint64_t packets_repeated =
      0;                         // on purpose: a node drops each of them as a break of its sequence
  double latest_ms = 0;          // that packets were sent behind their time
  uint64_t reports_dropped = 0;  // by this machine's kernel
  Verdict verdict;

  /// Nothing missing, nothing wrong, everything sent. A load without findings shows nothing: it fails.
  bool passed() const {
    return verdict.expected != 0 && verdict.missing == 0 && verdict.wrong == 0 &&
           packets_refused == 0;
  }
};

/// Lines for a person.
std::string load_text(const LoadSummary& summary);
/// One object, without a line end.
std::string load_json(const LoadSummary& summary);

}  // namespace cv::tools
