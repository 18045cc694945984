// The rules file: what a person writes to say which recordings a rule looks for. docs/rules.md
// describes the form for its readers.
//
// Reading is strict: an unknown member, a doubled one or a value out of range is an error that names
// its place, because a misspelt "treshold" that is silently ignored costs a night of wrong findings.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cv::tools {

/// One entry of a rule's "samples". Fields left empty come from the rule.
struct SampleUse {
  std::string file;  // a recording's name below the sample directory, or a pattern with * ? [ ]
  double threshold = 0;
  std::string name;          // empty: made from the file's name
  std::string event_object;  // compact JSON
};

/// Each absent option leaves the node's own default in force.
struct DeadAirOptions {
  std::optional<double> dev_threshold;
  std::optional<double> pow_threshold;
  std::optional<uint32_t> activity_hits;
  std::optional<uint32_t> silence_hits;
};

struct Rule {
  uint64_t id = 0;
  std::vector<SampleUse> samples;
  std::optional<DeadAirOptions> dead_air;
};

/// Invariant of a parsed file: rule ids are unique, and so are the files within one rule.
struct Rules {
  std::vector<Rule> rules;
};

/// What recordings need as they are fingerprinted by default; see docs/recognition.md.
inline constexpr double default_threshold = 4.5;

/// Empty, with "line L, column C: ..." or "rules[2].samples[0].threshold: ..." in `error`, when the
/// text is no valid rules file.
std::optional<Rules> parse_rules(std::string_view text, std::string& error);

/// As parse_rules(), of a file; `error` begins with the path.
std::optional<Rules> read_rules(const std::string& path, std::string& error);

/// Whether a name may stand in a report, which the node writes without escaping.
bool is_plain_name(std::string_view name);

}  // namespace cv::tools
