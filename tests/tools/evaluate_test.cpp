#include <cmath>
#include <gtest/gtest.h>
#include <map>

#include "audio/audio_fingerprint.h"
#include "audio/audio_samples_detector.h"
#include "support/recordings.h"
#include "tools/configd/rules_edit.h"
#include "tools/configd/rules_file.h"
#include "tools/evaluate/evaluation_result.h"
#include "tools/evaluate/false_rate.h"
#include "tools/evaluate/line_condition.h"
#include "tools/evaluate/threshold_sweep.h"
#include "tools/evaluate/truth.h"

namespace cv::tools {
namespace {

/// What both ways of finding are compared by.
using Detection = std::tuple<uint32_t, int32_t, uint32_t, double>;  // sample, offset, frame, score

using Payloads = std::vector<rc_ptr<audio::HashSamplePayload>>;

Payloads fingerprints_of(const std::vector<test::Recording>& prompts,
                         const FingerprintSettings& settings) {
  Payloads payloads;
  for (const test::Recording& prompt : prompts) {
    payloads.push_back(new audio::HashSamplePayload);
    payloads.back()->points = fingerprint_points(prompt.samples, settings);
  }
  // Hours of nothing before the last point: such a sample's votes are counted apart.
  payloads.push_back(new audio::HashSamplePayload);
  payloads.back()->points = payloads.front()->points;
  payloads.back()->points.back().offset += 1000000;
  return payloads;
}

rc_ptr<audio::HashDatabase> database_of(const Payloads& payloads, double threshold) {
  std::vector<audio::HashSample> samples;
  for (const auto& payload : payloads) {
    const rc_ptr<audio::SampleMetadata> metadata(new audio::SampleMetadata);
    metadata->id = static_cast<uint32_t>(samples.size());
    metadata->threshold = threshold;
    samples.push_back({metadata, payload});
  }
  return rc_ptr<audio::HashDatabase>(new audio::HashDatabase(samples));
}

/// A node's own findings.
class Node final : audio::SamplesDetectorCallback {
 public:
  std::vector<Detection> find(const std::vector<audio::HashPoint>& points,
                              const rc_ptr<audio::HashDatabase>& database, uint8_t drift) {
    audio::SamplesDetector detector;
    detector.set_database(database);
    detector.set_drift(drift);
    for (const audio::HashPoint& point : points) {
      m_frame = point.offset;
      detector.handle_hash(point, *this, nullptr);
    }
    return std::move(m_findings);
  }

 private:
  void on_sample_detected(audio::Match match, void*) override {
    m_findings.push_back({match.sample->id, match.offset, m_frame, match.score});
  }

  std::vector<Detection> m_findings;
  uint32_t m_frame = 0;
};

/// Prompts at odd places, one of them twice, in other speech.
std::vector<int16_t> call_of(const std::vector<test::Recording>& prompts,
                             const std::vector<test::Recording>& speech) {
  std::vector<int16_t> call(77);
  for (std::size_t i = 0; i < 8; ++i) {
    for (const auto* each : {&speech[7 * i], &prompts[5 * (i % 7)]}) {
      call.insert(call.end(), each->samples.begin(), each->samples.end());
    }
  }
  return call;
}

TEST(ThresholdSweep, FindsWhatANodeWithEachThresholdFinds) {
  auto prompts = test::english_prompts(12000);
  prompts.resize(60);
  const auto points = audio::fingerprint(call_of(prompts, test::french_prompts(16000)));
  const std::vector<double> thresholds = {2.5, 3, 3.5, 4, 4.5, 5, 6, 7, 9};
  for (uint8_t drift = 0; drift <= 3; ++drift) {
    for (const FingerprintSettings settings : {FingerprintSettings{1, 1, 0}, {4, 2, 0}}) {
      const Payloads payloads = fingerprints_of(prompts, settings);
      const auto lowest = database_of(payloads, thresholds.front());
      ThresholdSweep sweep(*lowest, thresholds, drift);
      for (const audio::HashPoint& point : points) sweep.handle_hash(point);
      std::vector<std::vector<Detection>> swept(thresholds.size());
      for (const auto& each : sweep.findings()) {
        swept[each.level].push_back({each.position, each.offset, each.frame, each.score});
      }
      std::size_t found = 0;
      for (std::size_t level = 0; level < thresholds.size(); ++level) {
        SCOPED_TRACE(testing::Message() << "drift " << int{drift} << ", phases " << settings.phases
                                        << ", threshold " << thresholds[level]);
        const auto database = database_of(payloads, thresholds[level]);
        EXPECT_EQ(swept[level], Node().find(points, database, drift));
        found += swept[level].size();
      }
      EXPECT_GT(found, 60u);
    }
  }
}

TEST(LineCondition, ChangesTheAudioAsItsTextSays) {
  const auto prompt = test::english_prompts(40000).front().samples;
  const SampleRange all{0, prompt.size()};
  const auto power = [&](const std::vector<int16_t>& audio) {
    return active_power(audio, {{{0, audio.size()}}});
  };
  // By how many dB the difference to the original lies below it, at least and at most; by how many
  // samples all moves.
  const struct {
    const char* text;
    double least_db, most_db;
    std::size_t moved;
  } table[] = {
      {"clean", 300, 300, 0},
      {"gain:-6.0206", 5.9, 6.1, 0},
      {"mulaw", 30, 45, 0},
      {"alaw", 30, 45, 0},
      {"gsm", 2, 20, 0},
      {"noise:10", 9.5, 10.5, 0},
      {"noise:0+gain:0", -1, 0.5, 0},
      {"offset:77", 300, 300, 77},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.text);
    std::string error;
    const auto condition = LineCondition::parse(row.text, error);
    ASSERT_TRUE(condition) << error;
    std::vector<int16_t> heard = prompt;
    std::vector<SampleRange> plays = {all};
    std::mt19937_64 random(1);
    condition->apply(heard, plays, random);
    ASSERT_EQ(heard.size(), prompt.size() + row.moved);
    EXPECT_EQ(plays[0].begin, row.moved);
    // Where the prompt is active; the same blocks count in both.
    double signal = 0, difference = 1e-30;
    for (std::size_t i = 0; i < prompt.size(); ++i) {
      signal += std::pow(prompt[i], 2);
      difference += std::pow(prompt[i] - heard[i + row.moved], 2);
    }
    const double active_share = signal / static_cast<double>(prompt.size()) / power(prompt);
    const double bias =
        std::string(row.text).starts_with("noise") ? 10 * std::log10(active_share) : 0;
    const double db = std::min(300.0, 10 * std::log10(signal / difference) - bias);
    EXPECT_GE(db, row.least_db);
    EXPECT_LE(db, row.most_db);
  }
  for (const char* text : {"", "loud", "gain", "gain:x", "noise:nan", "gsm:1", "offset:128",
                           "offset:-1", "gsm+", "noise:10,"}) {
    std::string error;
    EXPECT_FALSE(LineCondition::parse(text, error)) << text;
    EXPECT_NE(error, "") << text;
  }
}

TEST(Truth, IsReadLineByLineAndSaysWhereItIsWrong) {
  const auto truth_of = [](const std::string& text) {
    std::string out;
    const auto truth = parse_truth(text, out);
    if (!truth) return out;
    for (const TruthLine& line : *truth) {
      out += std::to_string(line.line) + " " + line.recording + " " +
             std::to_string(static_cast<int>(line.side)) + " " + line.sample + " " +
             std::to_string(line.start_s) + "; ";
    }
    return out;
  };
  EXPECT_EQ(truth_of("recording\tside\tsample\tstart\n# a\n\na b.wav\toriginator\tbusy\t1.5\r\n"
                     "a b.wav\toriginator\tbusy\t9\na b.wav\tterminator\t-\t\nc.wav\t-\t-"),
            "4 a b.wav 0 busy 1.500000; 5 a b.wav 0 busy 9.000000; 6 a b.wav 1  0.000000; "
            "7 c.wav 2  0.000000; ");
  const struct {
    const char* text;
    const char* error;
  } table[] = {
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
  };
  for (const auto& row : table) EXPECT_TRUE(truth_of(row.text).starts_with(row.error)) << row.text;
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
  for (const uint64_t rule : {uint64_t{1}, uint64_t{2}}) {
    EXPECT_FALSE(with_thresholds(rules, rule, {{"z.wav", 5}}, error));
  }
  EXPECT_FALSE(with_thresholds("{", 1, {}, error));
}

TEST(FalseRate, IsTheExactBound) {
  // Half of the 90th percentile of chi-square with 2 n + 2 degrees of freedom, from tables.
  const struct {
    uint64_t findings;
    double bound;
  } table[] = {{0, 2.996}, {1, 4.744}, {2, 6.296}, {5, 10.513}, {10, 16.962}, {49, 62.17}};
  for (const auto& row : table) {
    EXPECT_NEAR(highest_likely_rate(row.findings, 2), row.bound / 2, 0.003) << row.findings;
  }
  EXPECT_NEAR(hours_to_show(0.5), 5.99, 0.01);
}

}  // namespace
}  // namespace cv::tools
