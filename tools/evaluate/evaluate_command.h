// corvanth evaluate: what thresholds, drift and fingerprints cost and bring, on calls of which is known
// what is played in them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/evaluate/evaluation.h"

namespace cv::tools {

struct EvaluateOptions {
  std::string samples;
  std::string rules;
  std::optional<uint64_t> rule;
  std::string truth;                           // empty: calls are made up
  std::vector<std::string> background;         // files and folders
  std::vector<std::string> background_except;  // patterns
  double background_call_s = 120;
  double background_hours = 0;
  std::size_t planted_calls = 0;
  double planted_least_s = 0;
  double planted_most_s = 3600;
  EvaluationPlan plan{};
  double false_per_hour = 1;
  std::string plot;
  std::string csv;
  std::string sample_csv;
  std::optional<double> recommend;  // false findings an hour
  std::string output;               // of the recommendation; empty: beside the rules
  bool in_place = false;
  unsigned jobs = 0;  // 0: all processors
};

/// The table to standard output; an exit status.
int run_evaluate(const EvaluateOptions& options);

}  // namespace cv::tools
