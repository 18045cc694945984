// Thresholds written into a rules file that a person keeps: everything else in it stays as it is, to the
// byte: comments, order, blanks.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace cv::tools {

/// Threshold by recording, below the sample folder.
using Thresholds = std::map<std::string, double>;

/// `text`, a valid rules file, with these thresholds in the rule `rule_id`. A recording that the rule
/// names gets the member "threshold"; one that it finds by a pattern gets an entry of its own behind the
/// others, with the pattern's name and event object. What has its threshold already is left alone, and so
/// is the whole file when that is all. Empty, with the reason in `error`, when the text is no rules file
/// or the rule does not look for a recording.
std::optional<std::string> with_thresholds(const std::string& text, uint64_t rule_id,
                                           const Thresholds& thresholds, std::string& error);

}  // namespace cv::tools
