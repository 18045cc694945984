#include "tools/configd/rules_file.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

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
      {"id": 3, "dead_air": {"dev_threshold": 300, "activity_hits": 4294967295, "silence_hits": 0}},
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
  EXPECT_FALSE(first.dead_air);
  EXPECT_EQ(rules->rules[1].samples[1].threshold, 5.25);
  EXPECT_EQ(rules->rules[1].samples[1].event_object, "\"text\"");
  const DeadAirOptions dead_air = rules->rules[2].dead_air.value();
  EXPECT_EQ(dead_air.dev_threshold, 300);
  EXPECT_FALSE(dead_air.pow_threshold);
  EXPECT_EQ(dead_air.activity_hits, UINT32_MAX);
  EXPECT_EQ(dead_air.silence_hits, 0u);

  const auto bare = parse_rules(R"({"rules": [{"id": 1, "samples": ["*"]}]})", error);
  EXPECT_EQ(bare.value().rules.at(0).samples.at(0).threshold, 5.0) << "that of four phases";
  EXPECT_EQ(bare.value().rules.at(0).samples.at(0).event_object, "{}");
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
      {"", "line 1, column 1"},
      {"{\n  \"rules\": [\n    oops]}", "line 3, column 5"},
      {"[]", "top level: must be an object"},
      {"{}", "rules: is missing"},
      {R"({"rules": [7]})", "rules[0]: must be an object"},
      {R"({"rules": [], "rule": []})", "top level: unknown member \"rule\""},
      {R"({"rules": [], "rules": []})", "top level: member \"rules\" stands twice"},
      {R"({"rules": [{}]})", "rules[0].id: is missing"},
      {R"({"rules": [{"id": -1}]})", "rules[0].id: must be a whole number"},
      {R"({"rules": [{"id": 1}, {"id": 1}]})", "rules[1].id: 1 is the id of an earlier rule"},
      {R"({"rules": [], "threshold": 0})", "threshold: must be a number from 0.1 to 64.0, not 0"},
      {in_rule(R"("treshold": 5)"), "rules[1]: unknown member \"treshold\""},
      {in_rule(R"("threshold": 1e9)"), "rules[1].threshold: must be a number"},
      {in_rule(R"("samples": "*")"), "rules[1].samples: must be an array"},
      {in_rule(R"("samples": [""])"), "rules[1].samples[0]: must name a file"},
      {in_rule(R"("samples": [{}])"), "rules[1].samples[0].file: is missing"},
      {in_rule(R"("samples": ["a", {"file": "a"}])"), "rules[1].samples[1]: \"a\" stands twice"},
      {in_sample(R"("threshold": -1)"), "rules[1].samples[1].threshold: must be a number"},
      {in_sample(R"("name": "a\"b")"), "rules[1].samples[1].name: must be a text without quotes"},
      {in_sample(R"("name": "a\nb")"), "rules[1].samples[1].name: must be a text without quotes"},
      {in_sample(R"("name": "")"), "rules[1].samples[1].name: must be a text"},
      {in_rule(R"("dead_air": [])"), "rules[1].dead_air: must be an object"},
      {in_rule(R"("dead_air": {"sig_threshold": 1})"), "rules[1].dead_air: unknown member"},
      {in_rule(R"("dead_air": {"pow_threshold": -0.1})"), "rules[1].dead_air.pow_threshold:"},
      {in_rule(R"("dead_air": {"activity_hits": 4294967296})"), "rules[1].dead_air.activity_hits:"},
      {in_rule(R"("dead_air": {"silence_hits": 2.5})"), "rules[1].dead_air.silence_hits:"},
      {in_rule("\"name\": \"\xFF\""), "Invalid encoding"},
      {in_rule("\"event_object\": " + std::string(70, '[') + std::string(70, ']')), "deeper than"},
      {std::string(200000, '['), "line 1, column 200001"},
  };
  for (const auto& row : table) {
    std::string error;
    EXPECT_FALSE(parse_rules(row.text, error)) << row.text.substr(0, 200);
    EXPECT_NE(error.find(row.place), error.npos) << row.text.substr(0, 200) << "\n" << error;
  }
}

TEST(RulesFile, NamesTheFileItCouldNotReadAndReadsTheExampleThatIsShipped) {
  const test::TemporaryFolder folder;
  std::string error;
  for (const std::string& path : {folder.write("bad.json", "{"), folder / "missing"}) {
    EXPECT_FALSE(read_rules(path, error));
    EXPECT_EQ(error.find(path), 0u) << error;
  }
  const auto example = read_rules(CORVANTH_EXAMPLE_RULES, error);
  ASSERT_TRUE(example) << error;
  EXPECT_GE(example->rules.size(), 2u);
}

}  // namespace
}  // namespace cv::tools
