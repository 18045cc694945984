#include "tools/evaluate/evaluation_result.h"

#include <algorithm>
#include <cmath>

namespace cv::tools {

double percentile(std::vector<float> values, double share) {
  if (values.empty()) return 0;
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(std::max<std::size_t>(rank, 1) - 1);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

EvaluationResult::EvaluationResult(const EvaluationPlan& plan, std::size_t samples)
    : m_conditions(plan.conditions.size()),
      m_samples(samples),
      m_levels(plan.thresholds.size()),
      m_tallies(plan.settings.size() * m_conditions * samples) {
  for (auto& half : m_background) half.resize(plan.settings.size() * samples * m_levels);
}

void EvaluationResult::add(const CallOutcome& outcome) {
  for (const PlayOutcome& play : outcome.plays) {
    SampleTally& sample = tally(play.setting, play.condition, play.position);
    ++sample.played;
    sample.latencies_s.resize(m_levels);
    for (std::size_t level = 0; level < m_levels; ++level) {
      if (play.latency_s[level] >= 0) sample.latencies_s[level].push_back(play.latency_s[level]);
    }
  }
  const std::size_t half = m_background_calls % 2;
  for (const FindingCount& finding : outcome.findings) {
    if (finding.kind == FindingCount::Kind::background) {
      m_background[half][at(finding.setting, finding.position, finding.level)] += finding.count;
      continue;
    }
    SampleTally& sample = tally(finding.setting, finding.condition, finding.position);
    auto& counts = finding.kind == FindingCount::Kind::wrong ? sample.wrong : sample.stray;
    counts.resize(m_levels);
    counts[finding.level] += finding.count;
  }
  if (outcome.background_s > 0) {
    m_background_hours[half] += outcome.background_s / 3600;
    ++m_background_calls;
  }
}

class EvaluationResult::RateSum {
 public:
  void add(const SampleTally& sample, std::size_t level) {
    m_rates.played += sample.played;
    if (!sample.wrong.empty()) m_rates.wrong += sample.wrong[level];
    if (!sample.stray.empty()) m_rates.stray += sample.stray[level];
    if (sample.latencies_s.empty()) return;
    const auto& found = sample.latencies_s[level];
    m_latencies_s.insert(m_latencies_s.end(), found.begin(), found.end());
  }

  PlayRates rates() {
    m_rates.found = m_latencies_s.size();
    m_rates.median_s = percentile(m_latencies_s, 0.5);
    m_rates.p95_s = percentile(m_latencies_s, 0.95);
    return m_rates;
  }

 private:
  PlayRates m_rates;
  std::vector<float> m_latencies_s;
};

PlayRates EvaluationResult::rates(std::size_t setting, std::size_t condition, std::size_t level,
                                  std::optional<uint32_t> position) const {
  if (!position) return rates(setting, condition, std::vector<std::size_t>(m_samples, level));
  RateSum sum;
  sum.add(tally(setting, condition, *position), level);
  return sum.rates();
}

PlayRates EvaluationResult::rates(std::size_t setting, std::size_t condition,
                                  const std::vector<std::size_t>& levels) const {
  RateSum sum;
  for (uint32_t i = 0; i < m_samples; ++i) sum.add(tally(setting, condition, i), levels[i]);
  return sum.rates();
}

uint64_t EvaluationResult::false_findings(std::size_t setting, std::size_t level,
                                          std::optional<uint32_t> position) const {
  const uint32_t first = position.value_or(0);
  const uint32_t end = position ? *position + 1 : static_cast<uint32_t>(m_samples);
  uint64_t found = 0;
  for (uint32_t i = first; i < end; ++i) {
    for (std::size_t half = 0; half < 2; ++half) found += half_findings(half, setting, level, i);
  }
  return found;
}

std::optional<std::size_t> EvaluationResult::lowest_level(std::size_t setting,
                                                          double false_per_hour) const {
  if (background_hours() == 0) return std::nullopt;
  std::optional<std::size_t> lowest;
  for (std::size_t level = m_levels; level-- > 0;) {
    const auto found = static_cast<double>(false_findings(setting, level));
    if (found > false_per_hour * background_hours()) break;
    lowest = level;
  }
  return lowest;
}

}  // namespace cv::tools
