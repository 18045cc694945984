#include "tools/evaluate/threshold_choice.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace cv::tools {

namespace {

/// False findings of a sample at a level.
using Count = std::function<uint64_t(std::size_t level, uint32_t position)>;

uint64_t sum(const std::vector<std::size_t>& levels, const Count& count) {
  uint64_t findings = 0;
  for (uint32_t i = 0; i < levels.size(); ++i) findings += count(levels[i], i);
  return findings;
}

/// The lowest level from which on the sample has fewer findings than tell something.
std::size_t familiar_level(std::size_t levels, uint32_t position, const Count& count) {
  std::size_t lowest = levels - 1;
  while (lowest > 0 && count(lowest - 1, position) < findings_to_know_by) --lowest;
  return lowest;
}

std::optional<std::vector<std::size_t>> choose(std::size_t samples, std::size_t levels,
                                               const Count& count, double most_findings) {
  std::vector<std::size_t> familiar;
  for (uint32_t i = 0; i < samples; ++i) familiar.push_back(familiar_level(levels, i, count));
  for (std::size_t margin = 0; margin < levels; ++margin) {
    std::vector<std::size_t> chosen;
    for (const std::size_t level : familiar) chosen.push_back(std::min(level + margin, levels - 1));
    if (static_cast<double>(sum(chosen, count)) <= most_findings) return chosen;
  }
  return std::nullopt;
}

}  // namespace

std::optional<ThresholdChoice> choose_thresholds(const EvaluationResult& result,
                                                 std::size_t setting, double false_per_hour) {
  const double hours = result.background_hours();
  if (hours == 0) return std::nullopt;
  const Count all = [&](std::size_t level, uint32_t position) {
    return result.false_findings(setting, level, position);
  };
  auto levels = choose(result.samples(), result.levels(), all, false_per_hour * hours);
  if (!levels) return std::nullopt;
  ThresholdChoice choice{std::move(*levels), 0, 0, 0};
  choice.false_findings = sum(choice.levels, all);
  for (std::size_t half = 0; half < 2; ++half) {
    const Count learnt = [&](std::size_t level, uint32_t position) {
      return result.half_findings(half, setting, level, position);
    };
    const Count tried = [&](std::size_t level, uint32_t position) {
      return result.half_findings(1 - half, setting, level, position);
    };
    const double most = false_per_hour * result.half_hours(half);
    const auto on_half = choose(result.samples(), result.levels(), learnt, most);
    if (!on_half) continue;
    choice.tried_findings += sum(*on_half, tried);
    choice.tried_hours += result.half_hours(1 - half);
  }
  return choice;
}

}  // namespace cv::tools
