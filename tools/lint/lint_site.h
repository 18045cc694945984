// A site's recordings and rules, as far as lint looks at them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/configd/configuration.h"
#include "tools/fingerprint.h"
#include "tools/lint/recording_checks.h"

namespace cv::tools {

struct LintOptions {
  std::string samples;
  std::string rules;
  std::string state;        // empty: the rules file's with ".state" appended
  std::string recommended;  // empty: the rule of thumb
  SampleSettings settings{};
  unsigned drift_frames = 1;
  std::vector<std::string> ignored{};  // kinds
  bool json = false;
};

struct LintRecording {
  std::string unusable{};  // why; everything else is then empty
  int rate_hz = 0;
  RecordingFacts facts{};
  Points points{};  // as nodes get them
  /// What a call gives that plays it on the hop, and one that plays it as far off as can be.
  Points call{};
  Points call_off{};
};

struct LintSite {
  Rules rules;
  std::map<std::string, LintRecording> recordings;  // by name
  std::map<std::string, uint32_t> ids;              // of the usable ones
  Configuration configuration;

  /// The recording that the rule has under an id of its own.
  const std::string& file_of(uint64_t rule, uint32_t id) const;
};

using LintProgress = std::function<void(std::size_t done, std::size_t total)>;

/// Reads everything, on all processors. Empty, with the reason in `error`, when folder, rules or state
/// cannot be read.
std::optional<LintSite> read_lint_site(const LintOptions& options, const LintProgress& progress,
                                       std::string& error);

}  // namespace cv::tools
