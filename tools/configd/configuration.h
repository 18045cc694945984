// Rules and recordings brought together: the entries that nodes are told.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/configd/event_texts.h"
#include "tools/configd/rules_file.h"

namespace cv::tools {

struct Configuration {
  std::vector<SampleEntry> samples;
  std::vector<DeadAirEntry> dead_airs;
  /// For the operator, a line each: a file that no rule will find, a pattern that matches nothing.
  std::vector<std::string> complaints;
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
