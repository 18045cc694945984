// One rule of a site as a node sees it, made from the very files that `corvanth configd` serves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "audio/audio_hash_database.h"
#include "audio/audio_segment_detector.h"
#include "tools/fingerprint.h"

namespace cv::tools {

/// A recording that the rule looks for.
struct Prompt {
  std::string name;  // as reports name it
  std::vector<int16_t> samples;
};

struct LoadRule {
  rc_ptr<audio::HashDatabase> database;
  std::vector<Prompt> prompts;
  audio::SegmentDetectionOptions activity;
};

struct LoadRuleSource {
  std::string sample_directory;
  std::string rules_path;
  uint64_t rule = 0;
  std::string state_path;  // of configd; need not exist
  SampleSettings settings{};
};

/// Empty, with the reason in `error`, when a file cannot be read or the rule finds no recording.
/// `progress` is called with (recordings read, recordings to read).
std::optional<LoadRule> read_load_rule(
    const LoadRuleSource& source,
    const std::function<void(std::size_t done, std::size_t total)>& progress, std::string& error);

}  // namespace cv::tools
