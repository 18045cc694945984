#include "tools/evaluate/threshold_choice.h"

#include <algorithm>
#include <functional>

namespace cv::tools {

namespace {

/// False findings of a sample at a level.
using Count = std::function<uint64_t(std::size_t level, uint32_t position)>;
using Levels = std::vector<std::size_t>;

/// More findings than any sample has: one threshold for all.
constexpr uint64_t never = ~uint64_t{0};

uint64_t sum(const Levels& levels, const Count& count) {
  uint64_t findings = 0;
  for (uint32_t i = 0; i < levels.size(); ++i) findings += count(levels[i], i);
  return findings;
}

/// For each sample the lowest level from which on it has fewer than `tolerated` findings.
Levels needed_levels(const EvaluationResult& result, const Count& count, uint64_t tolerated) {
  Levels needed(result.samples());
  for (uint32_t i = 0; i < needed.size(); ++i) {
    std::size_t& level = needed[i];
    level = result.levels() - 1;
    while (level > 0 && count(level - 1, i) < tolerated) --level;
  }
  return needed;
}

Levels at_least(Levels levels, std::size_t least) {
  for (std::size_t& level : levels) level = std::max(level, least);
  return levels;
}

/// One way of choosing, with all and with half of the background known.
class Way {
 public:
  Way(const EvaluationResult& result, std::size_t setting, uint64_t tolerated)
      : m_result(result), m_setting(setting), m_needed(needed_levels(result, all(), tolerated)) {
    for (std::size_t half = 0; half < 2; ++half) {
      m_half_needed[half] = needed_levels(result, of_half(half), tolerated);
    }
  }

  ThresholdChoice choice(std::size_t common) const {
    ThresholdChoice choice;
    choice.levels = at_least(m_needed, common);
    choice.raised = static_cast<std::size_t>(std::count_if(
        m_needed.begin(), m_needed.end(), [&](auto level) { return level > common; }));
    choice.false_findings = sum(choice.levels, all());
    for (std::size_t half = 0; half < 2; ++half) {
      choice.tried_findings += sum(at_least(m_half_needed[half], common), of_half(1 - half));
    }
    return choice;
  }

 private:
  Count all() const {
    return [this](std::size_t level, uint32_t i) {
      return m_result.false_findings(m_setting, level, i);
    };
  }
  Count of_half(std::size_t half) const {
    return [this, half](std::size_t level, uint32_t i) {
      return m_result.half_findings(half, m_setting, level, i);
    };
  }

  const EvaluationResult& m_result;
  const std::size_t m_setting;
  Levels m_needed;
  Levels m_half_needed[2];
};

/// With the lowest common threshold from which on both counts stay within `most_findings`.
std::optional<ThresholdChoice> lowest_choice(const Way& way, std::size_t levels,
                                             double most_findings) {
  std::optional<ThresholdChoice> lowest;
  for (std::size_t common = levels; common-- > 0;) {
    ThresholdChoice choice = way.choice(common);
    const uint64_t worse = std::max(choice.false_findings, choice.tried_findings);
    if (static_cast<double>(worse) > most_findings) break;
    lowest = std::move(choice);
  }
  return lowest;
}

}  // namespace

std::optional<ThresholdChoice> choose_thresholds(const EvaluationResult& result,
                                                 std::size_t setting, double false_per_hour) {
  const double hours = result.background_hours();
  if (hours == 0) return std::nullopt;
  std::optional<ThresholdChoice> best;
  std::size_t best_found = 0;
  for (const uint64_t tolerated : {never, uint64_t{4}, uint64_t{2}, uint64_t{1}}) {
    auto choice =
        lowest_choice(Way(result, setting, tolerated), result.levels(), false_per_hour * hours);
    if (!choice) continue;
    std::size_t found = 0;
    for (std::size_t i = 0; i < result.conditions(); ++i) {
      found += result.rates(setting, i, choice->levels).found;
    }
    if (best && found <= best_found) continue;
    best = std::move(choice);
    best_found = found;
  }
  return best;
}

}  // namespace cv::tools
