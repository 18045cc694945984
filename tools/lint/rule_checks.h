// What may be wrong with rules: names, and thresholds against what was found to be right.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/lint/lint_finding.h"
#include "tools/lint/lint_site.h"

namespace cv::tools {

/// What an operator holds against the rules: either.
struct RecommendedThresholds {
  std::map<std::string, double> by_recording{};  // "*" stands for those that are not named
  std::optional<Rules> rules{};  // with the same ids, as `corvanth evaluate` writes them
};

/// {"thresholds": {"greeting.wav": 4.6, "*": 4.4}}, or a rules file. Empty, with the reason in `error`.
std::optional<RecommendedThresholds> parse_recommended(std::string_view text, std::string& error);

/// The lowest threshold with at most one false finding an hour of unrelated speech, for so many
/// samples in a rule; see docs/recognition.md.
double least_threshold(unsigned drift_frames, std::size_t samples, unsigned spacing_frames);

std::vector<LintFinding> check_rules(const LintSite& site);

/// Against `recommended`, or else against least_threshold().
std::vector<LintFinding> check_thresholds(const LintSite& site, const LintOptions& options,
                                          const std::optional<RecommendedThresholds>& recommended);

}  // namespace cv::tools
