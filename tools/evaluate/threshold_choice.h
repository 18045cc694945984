// A threshold for every sample, from what was found in the background.
//
// Samples differ in how easily other speech is taken for them, and in the background that an operator
// has, most are never found falsely at any threshold of use. So a sample's own few findings far out say
// little about it. What says more is at which threshold it still has some: the choice takes the lowest
// at which a sample has fewer than `findings_to_know_by`, and adds one margin, the same for all samples:
// the lowest that keeps the findings of all of them together within the wish. Only that one number is
// taken from the rare findings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/evaluate/evaluation_result.h"

namespace cv::tools {

inline constexpr uint64_t findings_to_know_by = 10;

struct ThresholdChoice {
  std::vector<std::size_t> levels;  // by the sample's position
  uint64_t false_findings = 0;      // that the background has with them
  /// The same method tried out: chosen on each half of the background, counted on the other.
  uint64_t tried_findings = 0;
  double tried_hours = 0;
};

/// Empty when not even the highest thresholds are good enough, or there is no background.
std::optional<ThresholdChoice> choose_thresholds(const EvaluationResult& result,
                                                 std::size_t setting, double false_per_hour);

}  // namespace cv::tools
