#include "tools/configd/rules_file.h"

#include <gtest/gtest.h>

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
  ASSERT_EQ(rules->rules.size(), 3u);
  const auto& first = rules->rules[0];
  EXPECT_EQ(first.id, UINT64_MAX);
  EXPECT_EQ(first.samples[0].threshold, 4.5);
  EXPECT_EQ(first.samples[0].event_object, R"({"site":"north"})");
  EXPECT_EQ(first.samples[1].threshold, 6);
  EXPECT_EQ(first.samples[1].name, "bee");
  EXPECT_EQ(first.samples[1].event_object, R"([1,{"k":null}])");
  EXPECT_EQ(rules->rules[1].samples[1].threshold, 5.25);
  EXPECT_EQ(rules->rules[1].samples[1].event_object, "\"text\"");
  const DeadAirOptions dead_air = rules->rules[2].dead_air.value();
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
  const auto in_sample = [&](const std::string& members) {
    return in_rule(R"("samples": ["a.wav", {"file": "b.wav", )" + members + "}]");
  };
  const struct {
    std::string text, place;
  } table[] = {
      {"{\n  \"rules\": [\n    oops]}", "line 3, column 5"},
      {R"({"rules": [], "rules": []})", "top level: member \"rules\" stands twice"},
      {R"({"rules": [{"id": 1}, {"id": 1}]})", "rules[1].id: 1 is the id of an earlier rule"},
      {R"({"rules": [], "threshold": 0})", "threshold: must be a number from 0.1 to 64.0, not 0"},
      {in_rule(R"("treshold": 5)"), "rules[1]: unknown member \"treshold\""},
      {in_rule(R"("samples": ["a", {"file": "a"}])"), "rules[1].samples[1]: \"a\" stands twice"},
      {in_sample(R"("threshold": -1)"), "rules[1].samples[1].threshold: must be a number"},
      {in_sample(R"("name": "a\"b")"), "rules[1].samples[1].name: must be a text without quotes"},
      {in_rule(R"("dead_air": {"sig_threshold": 1})"), "rules[1].dead_air: unknown member"},
      {in_rule(R"("dead_air": {"activity_hits": 4294967296})"), "rules[1].dead_air.activity_hits:"},
      {in_rule("\"event_object\": " + std::string(70, '[') + std::string(70, ']')), "deeper than"},
      {in_rule(R"("event_object": 17976931348623159e292)"), "beyond the range"},
  };
  for (const auto& row : table) {
    std::string error;
    EXPECT_FALSE(parse_rules(row.text, error)) << row.text.substr(0, 200);
    EXPECT_NE(error.find(row.place), error.npos) << row.text.substr(0, 200) << "\n" << error;
  }
}

}  // namespace
}  // namespace cv::tools
