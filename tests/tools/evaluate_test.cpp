#include <cmath>
#include <gtest/gtest.h>
#include <sstream>

#include "support/recordings.h"
#include "tools/configd/rules_edit.h"
#include "tools/configd/rules_file.h"
#include "tools/evaluate/false_rate.h"
#include "tools/evaluate/line_condition.h"
#include "tools/evaluate/truth.h"

namespace cv::tools {
namespace {

TEST(LineCondition, ChangesTheAudioAsItsTextSays) {
  const auto prompt = test::english_prompts(40000).front().samples;
  const std::vector<SampleRange> all = {{0, prompt.size()}};
  const auto power_of = [](const std::vector<int16_t>& audio) {
    double sum = 1e-30;
    for (const double sample : audio) sum += sample * sample;
    return sum / static_cast<double>(audio.size());
  };
  // Noise is set against the power where the prompt is active.
  const double pauses_db = 10 * std::log10(active_power(prompt, all) / power_of(prompt));
  EXPECT_GT(pauses_db, 0.3);
  // By how many dB the difference to the original lies below it; by how many samples all moves.
  const struct {
    const char* text;
    double least_db, most_db;
    std::size_t moved;
  } table[] = {
      {"clean", 300, 500, 0},
      {"gain:-6.0206", 5.9, 6.1, 0},
      {"mulaw", 30, 45, 0},
      {"alaw", 30, 45, 0},
      {"gsm", 2, 20, 0},
      {"noise:10", 9.8 - pauses_db, 10.2 - pauses_db, 0},
      {"noise:0+gain:0", -1 - pauses_db, 0.5 - pauses_db, 0},
      {"offset:77", 300, 500, 77},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.text);
    std::string error;
    const auto condition = LineCondition::parse(row.text, error);
    ASSERT_TRUE(condition) << error;
    std::vector<int16_t> heard = prompt;
    std::vector<SampleRange> plays = all;
    std::mt19937_64 random(1);
    condition->apply(heard, plays, random);
    ASSERT_EQ(heard.size(), prompt.size() + row.moved);
    EXPECT_EQ(plays[0].begin, row.moved);
    std::vector<int16_t> difference;
    for (std::size_t i = 0; i < prompt.size(); ++i) {
      difference.push_back(static_cast<int16_t>(prompt[i] - heard[i + row.moved]));
    }
    const double db = 10 * std::log10(power_of(prompt) / power_of(difference));
    EXPECT_GE(db, row.least_db);
    EXPECT_LE(db, row.most_db);
  }
  for (const char* text :
       {"", "loud", "gain", "gain:x", "noise:nan", "gsm:1", "offset:128", "gsm+", "noise:10,"}) {
    std::string error;
    EXPECT_FALSE(LineCondition::parse(text, error)) << text;
    EXPECT_NE(error, "") << text;
  }
}

TEST(Truth, IsReadLineByLineAndSaysWhereItIsWrong) {
  // What was read, or the complaint.
  const std::pair<const char*, const char*> table[] = {
      {"recording\tside\tsample\tstart\n# a\n\na b.wav\toriginator\tbusy\t1.5\r\n"
       "a b.wav\toriginator\tbusy\t9\na b.wav\tterminator\t-\t\nc.wav\t-\t-",
       "4 a b.wav 0 busy 1.5; 5 a b.wav 0 busy 9; 6 a b.wav 1  0; 7 c.wav 2  0; "},
      {"\xEF\xBB\xBFrecording\tside\tsample\tstart\na.wav\t-\t-", "2 a.wav 2  0; "},
      {"\xEF\xBB\xBF"
       "./a.wav\t-\t-",
       "1 a.wav 2  0; "},
      {"", "there is no recording in it"},
      {"a.wav originator x 1", "line 1: 3 or 4 fields"},
      {"#\na.wav\tleft\tx\t1", "line 2: the side must be"},
      {"a.wav\toriginator\tx\t", "line 1: the start must be"},
      {"a.wav\toriginator\tx\t-1", "line 1: the start must be"},
      {"a.wav\toriginator\tx\tinf", "line 1: the start must be"},
      {"a.wav\t-\tx\t1", "line 1: a sample is played on one side"},
      {"a.wav\toriginator\t-\t1", "line 1: a side without a sample"},
      {"a.wav\toriginator\tx\t1\na.wav\t-\t-", "line 2: an earlier line"},
      {"a.wav\t-\t-\na.wav\tterminator\tx\t1", "line 2: an earlier line"},
      {"a.wav\t-\t-\na.wav\tterminator\t-", "line 2: an earlier line"},
      {"a.wav\toriginator\tx\t1\na.wav\toriginator\tx\t2\nd/../a.wav\toriginator\tx\t1.0",
       "line 3: an earlier line says the same"},
  };
  for (const auto& [text, expected] : table) {
    std::string error;
    const auto truth = parse_truth(text, error);
    std::ostringstream read;
    for (const TruthLine& line : truth.value_or(std::vector<TruthLine>())) {
      read << line.line << " " << line.recording << " " << static_cast<int>(line.side) << " "
           << line.sample << " " << line.start_s << "; ";
    }
    EXPECT_EQ((truth ? read.str() : error).find(expected), 0u) << text << "\n" << error;
  }
}

TEST(RulesEdit, WritesThresholdsAndLeavesTheRestAlone) {
  const std::string rules = R"(// ours
{ "threshold": 4.5, /* for all */
  "rules": [
    {"id": 7, "samples": ["one.wav"]},
    {
      "id": 1, // the "main" one
      "samples": [
        "a.wav", "b \"q\" \\",
        {"file": "c.wav", "threshold": 9.25, "name": "see"},
        {"file": "d.wav", "event_object": {"x": [1, true, null, 2e1]},}, // kept
        {"file": "m/*", "event_object": {"campaign": "spring"}}, // kept too
      ],
    },
  ]
})";
  std::string error;
  const Thresholds thresholds = {{"a.wav", 5},    {"b \"q\" \\", 5.1},  {"c.wav", 5.2},
                                 {"d.wav", 5.25}, {"m/\"1\".wav", 5.4}, {"m/2.wav", 4.5}};
  const auto edited = with_thresholds(rules, 1, thresholds, error);
  ASSERT_TRUE(edited) << error;
  EXPECT_EQ(*edited, R"(// ours
{ "threshold": 4.5, /* for all */
  "rules": [
    {"id": 7, "samples": ["one.wav"]},
    {
      "id": 1, // the "main" one
      "samples": [
        {"file": "a.wav", "threshold": 5}, {"file": "b \"q\" \\", "threshold": 5.1},
        {"file": "c.wav", "threshold": 5.2, "name": "see"},
        {"file": "d.wav", "event_object": {"x": [1, true, null, 2e1]}, "threshold": 5.25,}, // kept
        {"file": "m/*", "event_object": {"campaign": "spring"}},
        {"file": "m/\"1\".wav", "threshold": 5.4, "event_object": {"campaign": "spring"}}, // kept too
      ],
    },
  ]
})");
  EXPECT_TRUE(parse_rules(*edited, error)) << error;
  EXPECT_EQ(with_thresholds(*edited, 1, thresholds, error), edited);
  const std::string mark = "\xEF\xBB\xBF";  // of a byte order, as some editors write it
  EXPECT_EQ(with_thresholds(mark + rules, 1, thresholds, error), mark + *edited);
  for (const uint64_t rule : {uint64_t{1}, uint64_t{2}}) {
    EXPECT_FALSE(with_thresholds(rules, rule, {{"z.wav", 5}}, error));
  }
  EXPECT_FALSE(with_thresholds("{", 1, {}, error));
}

TEST(FalseRate, IsTheExactBound) {
  // Half of the 95th percentile of chi-square with 2 n + 2 degrees of freedom, from tables.
  const std::pair<uint64_t, double> table[] = {{0, 2.996}, {1, 4.744}, {10, 16.962}, {49, 62.17}};
  for (const auto& [findings, bound] : table) {
    EXPECT_NEAR(highest_likely_rate(findings, 2), bound / 2, 0.003) << findings;
  }
  EXPECT_NEAR(hours_to_show(0.5), 5.99, 0.01);
}

}  // namespace
}  // namespace cv::tools
