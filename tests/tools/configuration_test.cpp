#include "tools/configd/configuration.h"

#include <gtest/gtest.h>

namespace {

using cv::tools::resolve;

cv::tools::Rules rules_of(const std::string& text) {
  std::string error;
  auto rules = cv::tools::parse_rules(text, error);
  EXPECT_TRUE(rules) << error;
  return rules.value_or(cv::tools::Rules());
}

std::vector<std::string> lines(const cv::tools::Configuration& configuration) {
  std::vector<std::string> result;
  for (const auto& entry : configuration.samples) {
    result.push_back(std::to_string(entry.rule_id) + " " + std::to_string(entry.sample_id) + " " +
                     entry.sample_name + " " + std::to_string(static_cast<int>(entry.threshold)));
  }
  return result;
}

const std::map<std::string, uint32_t> ids = {
    {"a.wav", 30}, {"b.flac", 20}, {"digits/1.wav", 10}, {"digits/2.wav", 40}};

TEST(Resolve, NamesBeatPatternsAndEarlierPatternsBeatLaterOnes) {
  const struct {
    std::string samples;
    std::vector<std::string> expected;
  } table[] = {
      {R"(["*"])", {"9 10 digits/1 5", "9 20 b 5", "9 30 a 5", "9 40 digits/2 5"}},
      {R"([{"file": "*", "threshold": 4}, {"file": "a.wav", "threshold": 7, "name": "ay"}])",
       {"9 10 digits/1 4", "9 20 b 4", "9 30 ay 7", "9 40 digits/2 4"}},
      {R"([{"file": "digits/*", "threshold": 6}, "*"])",
       {"9 10 digits/1 6", "9 20 b 5", "9 30 a 5", "9 40 digits/2 6"}},
      {R"(["digits/[13].wav", "?.flac"])", {"9 10 digits/1 5", "9 20 b 5"}},
      {R"([])", {}},
  };
  for (const auto& row : table) {
    const auto result =
        resolve(rules_of(R"({"rules": [{"id": 9, "samples": )" + row.samples + "}]}"), ids);
    EXPECT_EQ(lines(result), row.expected) << row.samples;
    EXPECT_TRUE(result.complaints.empty()) << row.samples;
  }
}

TEST(Resolve, IsTheSameHoweverTheRulesAreOrdered) {
  const std::string one = R"({"id": 2, "samples": ["b.flac", "a.wav"], "dead_air": {}})";
  const std::string two = R"({"id": 1, "samples": ["*"], "dead_air": {}})";
  const auto forth = resolve(rules_of("{\"rules\": [" + one + "," + two + "]}"), ids);
  const auto back = resolve(rules_of("{\"rules\": [" + two + "," + one + "]}"), ids);
  EXPECT_EQ(cv::tools::sample_data_json(forth.samples), cv::tools::sample_data_json(back.samples));
  EXPECT_EQ(cv::tools::dead_air_data_json(forth.dead_airs), R"([{"rule_id":1},{"rule_id":2}])");
  EXPECT_EQ(cv::tools::dead_air_data_json(back.dead_airs), R"([{"rule_id":1},{"rule_id":2}])");
}

TEST(Resolve, SaysWhatNoNodeWillFind) {
  const auto missing =
      resolve(rules_of(R"({"rules": [{"id": 3, "samples": ["z.wav", "x/*", "a.wav"]}]})"), ids);
  EXPECT_EQ(missing.complaints,
            (std::vector<std::string>{"rule 3: there is no usable recording \"z.wav\"",
                                      "rule 3: no recording matches \"x/*\""}));
  EXPECT_EQ(missing.samples.size(), 1u);

  const auto twins = resolve(rules_of(R"({"rules": [{"id": 3, "samples": ["*"]}]})"),
                             {{"a.wav", 1}, {"b.wav", 1}, {"c.wav", 2}});
  EXPECT_EQ(lines(twins), (std::vector<std::string>{"3 1 a 5", "3 2 c 5"}));
  EXPECT_EQ(twins.complaints.size(), 1u);
}

TEST(DefaultSampleName, IsWhatAReportCanCarry) {
  const struct {
    std::string file, name;
  } table[] = {{"a.wav", "a"},
               {"folder/a.b.wav", "folder/a.b"},
               {"plain", "plain"},
               {"x.y/plain", "x.y/plain"},
               {".wav", ".wav"},
               {"f/.wav", "f/.wav"},
               {"say \"hi\"\\\n.wav", "say _hi___"}};
  for (const auto& row : table) EXPECT_EQ(cv::tools::default_sample_name(row.file), row.name);
}

}  // namespace
