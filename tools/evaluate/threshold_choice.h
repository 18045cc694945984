// A threshold for every sample, from what was found in the background.
//
// Samples differ in how easily other speech is taken for them, and in any background most are never
// found falsely at a threshold of use, so that nothing is known of them one by one. So all get one
// threshold, the lowest possible, and those that the background has shown to need more get more: the
// lowest at which they have fewer findings than a small number. Which number (none at all among the
// choices: one threshold for all) is decided by what is found of what is played.
//
// What is learnt from rare findings is believed only as far as it holds for others: each half of the
// background is tried with thresholds chosen on the other, and has to stay within the wish as well.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/evaluate/evaluation_result.h"

namespace cv::tools {

struct ThresholdChoice {
  std::vector<std::size_t> levels;  // by the sample's position
  std::size_t raised = 0;           // samples that need more than the others
  uint64_t false_findings = 0;      // that the background has with them
  /// As tried out: chosen on each half of the background, counted on the other.
  uint64_t tried_findings = 0;
};

/// Empty when not even the highest thresholds are good enough, or there is no background.
std::optional<ThresholdChoice> choose_thresholds(const EvaluationResult& result,
                                                 std::size_t setting, double false_per_hour);

}  // namespace cv::tools
