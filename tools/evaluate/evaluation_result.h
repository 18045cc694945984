// The outcomes of all calls added up: rates by setting, condition and threshold, of every sample and in
// all. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/evaluate/evaluation.h"

namespace cv::tools {

/// What was found of the samples played.
struct PlayRates {
  std::size_t played = 0;
  std::size_t found = 0;
  std::size_t wrong = 0;  // findings of another sample meanwhile
  std::size_t stray = 0;  // findings in the same calls while none was played
  // From a sample's start to its finding; 0 when none was found.
  double median_s = 0;
  double p95_s = 0;

  double found_share() const {
    return played == 0 ? 0 : static_cast<double>(found) / static_cast<double>(played);
  }
};

class EvaluationResult {
 public:
  EvaluationResult(const EvaluationPlan& plan, std::size_t samples);

  /// In the order of the calls.
  void add(const CallOutcome& outcome);

  std::size_t conditions() const { return m_conditions; }
  std::size_t samples() const { return m_samples; }
  std::size_t levels() const { return m_levels; }
  double background_hours() const { return m_background_hours[0] + m_background_hours[1]; }

  /// Of one sample, or of all. Wrong and stray findings of a sample are those in which it was named.
  PlayRates rates(std::size_t setting, std::size_t condition, std::size_t level,
                  std::optional<uint32_t> position = std::nullopt) const;
  /// Of all samples, each at a level of its own.
  PlayRates rates(std::size_t setting, std::size_t condition,
                  const std::vector<std::size_t>& levels) const;
  /// Findings in the background, of one sample or of all.
  uint64_t false_findings(std::size_t setting, std::size_t level,
                          std::optional<uint32_t> position = std::nullopt) const;

  /// The lowest level from which on there are never more than `false_per_hour` false findings an hour;
  /// none when even the highest has more, or there is no background.
  std::optional<std::size_t> lowest_level(std::size_t setting, double false_per_hour) const;

  /// The background's calls alternate between two halves, to try on one what was learnt on the other.
  uint64_t half_findings(std::size_t half, std::size_t setting, std::size_t level,
                         uint32_t position) const {
    return m_background[half][at(setting, position, level)];
  }

 private:
  class RateSum;

  /// One sample's under one setting and condition, by level.
  struct SampleTally {
    std::size_t played = 0;
    std::vector<uint32_t> wrong;
    std::vector<uint32_t> stray;
    std::vector<std::vector<float>> latencies_s;  // of those found
  };

  std::size_t at(std::size_t setting, uint32_t position, std::size_t level) const {
    return (setting * m_samples + position) * m_levels + level;
  }
  const SampleTally& tally(std::size_t setting, std::size_t condition, uint32_t position) const {
    return m_tallies[(setting * m_conditions + condition) * m_samples + position];
  }
  SampleTally& tally(std::size_t setting, std::size_t condition, uint32_t position) {
    return m_tallies[(setting * m_conditions + condition) * m_samples + position];
  }

  const std::size_t m_conditions;
  const std::size_t m_samples;
  const std::size_t m_levels;
  std::vector<SampleTally> m_tallies;
  std::vector<uint32_t> m_background[2];  // by half, then at()
  double m_background_hours[2] = {0, 0};
  std::size_t m_background_calls = 0;
};

/// The value below which that share of `values` lies, by nearest rank; 0 when there are none.
double percentile(std::vector<float> values, double share);

}  // namespace cv::tools
