// Rules and recordings brought together: the entries that nodes are told.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/configd/event_texts.h"
#include "tools/configd/rules_file.h"

namespace cv::tools {

/// What a rule names in vain.
struct Complaint {
  enum class Kind {
    missing,     // a recording that there is not, a pattern that matches nothing
    same_audio,  // as another recording of the rule
  };

  Kind kind;
  uint64_t rule;
  std::string file;  // or pattern
  std::string text;  // for the operator

  std::string line() const { return "rule " + std::to_string(rule) + ": " + text; }
};

struct Configuration {
  std::vector<SampleEntry> samples;
  std::vector<DeadAirEntry> dead_airs;
  std::vector<Complaint> complaints;
};

/// `ids` holds every usable recording. Within a rule a recording named in full beats every pattern,
/// and an earlier pattern beats a later one. Entries are in the order of their ids, so that equal
/// configurations have equal texts however their files are ordered.
Configuration resolve(const Rules& rules, const std::map<std::string, uint32_t>& ids);

/// Those of `packets` that at least one rule looks for.
std::set<std::string> served_recordings(
    const Rules& rules, const std::map<std::string, std::vector<unsigned char>>& packets);

/// "folder/greeting.wav" gives "folder/greeting"; what a report cannot carry becomes '_'.
std::string default_sample_name(const std::string& file);

}  // namespace cv::tools
