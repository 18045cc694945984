// corvanth analyse: what a node finds in recordings, without a node.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/analyse/trace_recorder.h"
#include "tools/fingerprint.h"

namespace cv::tools {

struct AnalyseOptions {
  std::vector<std::string> recordings;  // files and folders
  std::string capture;                  // instead: a file of packets
  bool list = false;                    // only its streams
  std::string originator;               // which stream; empty: found out, or none
  std::string terminator;
  bool pair = false;  // two files: the sides of one call
  std::string mono_side = "originator";
  std::string samples;
  std::string rules;
  std::optional<uint64_t> rule;
  std::string state;          // of configd; empty: the rules file's with ".state" appended
  SampleSettings settings{};  // as configd's
  std::vector<std::string> features = {"samples", "activity"};
  std::string config_file;  // of the node; empty: its defaults
  std::string args;         // as the node's --args
  std::string uuid;         // empty: made from each recording's name
  uint64_t timestamp = 0;
  std::optional<uint64_t> config_version;  // none: the state file's, or 1
  std::string index;                       // file of uuid and recording
  std::string csv;                         // files of what the node sees; empty: none
  std::string csv_scores;
  std::string plot;  // a page, of one call
  TraceSettings trace{};
  unsigned jobs = 0;  // 0: all processors
};

/// An exit status: a failure when a recording could not be analysed; the others are all the same.
int run_analyse(const AnalyseOptions& options);

}  // namespace cv::tools
