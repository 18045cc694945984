#include "tools/configd/rules_file.h"

#include <gtest/gtest.h>

#include "tools/configd/configuration.h"

namespace cv::tools {
namespace {

TEST(RulesFile, SamplesTakeWhatTheyDoNotSayFromTheirRuleAndRulesFromTheFile) {
  std::string error;
  const auto rules = parse_rules(R"({
    // comments and trailing commas are for people
    "threshold": 4.5, "event_object": {"site": "north"},
    "rules": [
      {"id": 18446744073709551615, "name": "all of it", "samples": [
        "a.wav",
        {"file": "b.wav", "threshold": 6, "name": "bee", "event_object": [1, {"k": null}]},
      ]},
      {"id": 2, "threshold": 5.25, "event_object": "text", "samples": ["*", {"file": "c.wav"}]},
      {"id": 3, "dead_air": {"dev_threshold": 300, "pow_threshold": 0e308, "activity_hits": 4294967295,
                            "silence_hits": 0}},
    ]})",
                                 error);
  ASSERT_TRUE(rules) << error;
  EXPECT_EQ(rules->rules.at(0).id, UINT64_MAX);
  std::vector<std::tuple<std::string, double, std::string, std::string>> samples;
  for (const Rule& rule : rules->rules) {
    for (const SampleUse& use : rule.samples) {
      samples.emplace_back(use.file, use.threshold, use.name, use.event_object);
    }
  }
  EXPECT_EQ(samples, (decltype(samples){{"a.wav", 4.5, "", R"({"site":"north"})"},
                                        {"b.wav", 6, "bee", R"([1,{"k":null}])"},
                                        {"*", 5.25, "", "\"text\""},
                                        {"c.wav", 5.25, "", "\"text\""}}));
  const DeadAirOptions dead_air = rules->rules.at(2).dead_air.value();
  EXPECT_EQ(dead_air.dev_threshold, 300);
  EXPECT_EQ(dead_air.pow_threshold, 0);
  EXPECT_EQ(dead_air.activity_hits, UINT32_MAX);
  EXPECT_EQ(dead_air.silence_hits, 0u);
  EXPECT_TRUE(read_rules(CORVANTH_EXAMPLE_RULES, error)) << error;
}

TEST(RulesFile, SaysWhereABadFileIsBad) {
  const auto in_rule = [](const std::string& members) {
    return R"({"rules": [{"id": 1}, {"id": 2, )" + members + "}]}";
  };
  const std::string sample = R"("samples": ["a.wav", {"file": "b.wav", )";
  const std::pair<std::string, const char*> table[] = {
      {"{\n  \"rules\": [\n    oops]}", "line 3, column 5"},
      {R"({"rules": [], "rules": []})", "top level: member \"rules\" stands twice"},
      {R"({"rules": [{"id": 1}, {"id": 1}]})", "rules[1].id: 1 is the id of an earlier rule"},
      {R"({"rules": [], "threshold": 0})", "threshold: must be a number from 0.1 to 64.0, not 0"},
      {in_rule(R"("treshold": 5)"), "rules[1]: unknown member \"treshold\""},
      {in_rule(R"("samples": ["a", {"file": "a"}])"), "rules[1].samples[1]: \"a\" stands twice"},
      {in_rule(sample + R"("name": "a\"b"}])"), "rules[1].samples[1].name: must be a text without"},
      {in_rule(R"("dead_air": {"activity_hits": 4294967296})"), "rules[1].dead_air.activity_hits:"},
      {in_rule("\"event_object\": " + std::string(70, '[') + std::string(70, ']')), "deeper than"},
      {in_rule(R"("event_object": 17976931348623159e292)"), "beyond the range"},
      {in_rule(R"("event_object": [{"\uDC00": 1}])"), "half of a surrogate pair"},
  };
  for (const auto& [text, place] : table) {
    std::string error;
    EXPECT_FALSE(parse_rules(text, error)) << text.substr(0, 200);
    EXPECT_NE(error.find(place), error.npos) << text.substr(0, 200) << "\n" << error;
  }
}

TEST(RulesFile, NamesBeatPatternsEarlierPatternsLaterOnesAndWhatNoNodeWillFindIsSaid) {
  const std::map<std::string, uint32_t> ids = {
      {"a.wav", 3}, {"b.flac", 2}, {"digits/1.wav", 1}, {"digits/2.wav", 4}};
  const std::pair<std::string, std::string> table[] = {
      {R"({"file": "*", "threshold": 4}, {"file": "a.wav", "threshold": 7, "name": "ay"})",
       "1 digits/1 4; 2 b 4; 3 ay 7; 4 digits/2 4; "},
      {R"({"file": "digits/*", "threshold": 6}, {"file": "*", "threshold": 5})",
       "1 digits/1 6; 2 b 5; 3 a 5; 4 digits/2 6; "},
      {R"("z.wav", "x/*", {"file": "a.wav", "threshold": 5})",
       "3 a 5; rule 9: there is no usable recording \"z.wav\"; "
       "rule 9: no recording matches \"x/*\"; "},
  };
  for (const auto& [samples, expected] : table) {
    std::string error;
    const auto rules =
        parse_rules(R"({"rules": [{"id": 9, "samples": [)" + samples + "]}]}", error);
    ASSERT_TRUE(rules) << error;
    const Configuration configuration = resolve(*rules, ids);
    std::ostringstream text;
    for (const SampleEntry& entry : configuration.samples) {
      text << entry.sample_id << " " << entry.sample_name << " " << entry.threshold << "; ";
    }
    for (const Complaint& complaint : configuration.complaints) text << complaint.line() << "; ";
    EXPECT_EQ(text.str(), expected);
  }
}

}  // namespace
}  // namespace cv::tools
