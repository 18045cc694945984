#include "tools/configd/configuration.h"

#include <gtest/gtest.h>

namespace cv::tools {
namespace {

using Lines = std::vector<std::string>;

const std::map<std::string, uint32_t> ids = {
    {"a.wav", 30}, {"b.flac", 20}, {"digits/1.wav", 10}, {"digits/2.wav", 40}};

Configuration resolve_rules(const std::string& rules) {
  std::string error;
  const auto parsed = parse_rules("{\"rules\": [" + rules + "]}", error);
  EXPECT_TRUE(parsed) << error;
  return resolve(parsed.value_or(Rules()), ids);
}

Lines lines(const Configuration& configuration) {
  Lines result;
  for (const auto& entry : configuration.samples) {
    result.push_back(std::to_string(entry.rule_id) + " " + std::to_string(entry.sample_id) + " " +
                     entry.sample_name + " " + std::to_string(static_cast<int>(entry.threshold)));
  }
  return result;
}

Lines complaints(const Configuration& configuration) {
  Lines result;
  for (const Complaint& complaint : configuration.complaints) result.push_back(complaint.line());
  return result;
}

TEST(Resolve, NamesBeatPatternsAndEarlierPatternsBeatLaterOnes) {
  const std::pair<std::string, Lines> table[] = {
      {R"({"file": "*", "threshold": 4}, {"file": "a.wav", "threshold": 7, "name": "ay"})",
       {"9 10 digits/1 4", "9 20 b 4", "9 30 ay 7", "9 40 digits/2 4"}},
      {R"({"file": "digits/*", "threshold": 6}, "*")",
       {"9 10 digits/1 6", "9 20 b 4", "9 30 a 4", "9 40 digits/2 6"}},
  };
  for (const auto& [samples, expected] : table) {
    const auto result = resolve_rules(R"({"id": 9, "samples": [)" + samples + "]}");
    EXPECT_EQ(lines(result), expected) << samples;
    EXPECT_EQ(complaints(result), Lines()) << samples;
  }
}

TEST(Resolve, SaysWhatNoNodeWillFind) {
  const auto missing = resolve_rules(R"({"id": 3, "samples": ["z.wav", "x/*", "a.wav"]})");
  EXPECT_EQ(complaints(missing), (Lines{"rule 3: there is no usable recording \"z.wav\"",
                                        "rule 3: no recording matches \"x/*\""}));
  EXPECT_EQ(lines(missing), (Lines{"3 30 a 4"}));
}

}  // namespace
}  // namespace cv::tools
