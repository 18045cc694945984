// corvanth load: many calls at once, and a verdict on what the node reported about them.
#pragma once

#include <cstdint>
#include <string>

#include "tools/fingerprint.h"
#include "tools/load/impairment.h"

namespace cv::tools {

struct LoadOptions {
  std::string background;  // folder: what the calls talk about
  std::string samples;     // as configd has them
  std::string rules;
  uint64_t rule = 0;
  std::string state;          // empty: the rules file's with ".state" appended
  SampleSettings settings{};  // as configd's
  unsigned drift_frames = 1;
  std::string to;
  std::string report_host;  // empty: the local address towards the node
  uint32_t calls = 0;       // at once
  double ramp_s = 10;
  double duration_s = 60;  // behind the ramp
  double call_length_s = 60;
  double share = 0.5;  // of calls that are given a known recording
  uint32_t scripts = 64;
  Impairments impairments;
  uint64_t seed = 1;
  double drain_s = 5;
  bool json = false;
};

/// An exit status: done only when every finding was reported, none was wrong and every packet sent.
int run_load(const LoadOptions& options);

}  // namespace cv::tools
