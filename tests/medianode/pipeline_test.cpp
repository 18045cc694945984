#include "support/pipeline.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/recordings.h"

namespace {

using cv::test::CallPackets;
using cv::test::KnownSample;
using cv::test::Pipeline;
using Audio = std::vector<int16_t>;
using Texts = std::vector<std::string>;

constexpr uint64_t rule = 5;

Audio silence(std::size_t samples) { return Audio(samples, 0); }

/// 1 kHz, loud enough to be active in every frame it reaches into.
Audio tone(std::size_t samples) {
  Audio audio(samples);
  for (std::size_t i = 0; i < samples; ++i) {
    audio[i] = static_cast<int16_t>(8000 * std::sin(std::numbers::pi / 4 * static_cast<double>(i)));
  }
  return audio;
}

std::string member(const std::string& text, const std::string& name) {
  const auto begin = text.find("\"" + name + "\": ");
  if (begin == text.npos) return {};
  const auto value = begin + name.size() + 4;
  return text.substr(value, text.find_first_of(",}", value) - value);
}

/// Version 7, in which the rule has these options and every other the defaults.
cv::rc_ptr<cv::mn::DeadAirConfig> dead_air_config(
    const cv::audio::SegmentDetectionOptions& of_rule) {
  cv::rc_ptr<cv::mn::DeadAirConfig> config(
      new cv::mn::DeadAirConfig(7, cv::audio::SegmentDetectionOptions()));
  config->m_rules.emplace(rule, of_rule);
  return config;
}

const std::string uuid = "00112233-4455-6677-8899-aabbccddee01";

/// Plays a script to a call: features of its START and then of updates (two hexadecimal digits), a
/// side that plays half a second of tone ("0"), a database of one sample of rule 5 to publish, with a
/// point ("v4") or without ("e4").
void play_steps(Pipeline& pipeline, const std::vector<std::string>& steps) {
  const CallPackets call;
  bool started = false;
  uint32_t seq[2] = {0, 0};
  for (const std::string& step : steps) {
    if (step[0] == 'v' || step[0] == 'e') {
      const std::vector<cv::audio::HashPoint> points(step[0] == 'v' ? 1 : 0, {1, 1});
      pipeline.publish(step[1] - '0', rule, {{1, "one", points}});
    } else if (step.size() == 1) {
      const uint16_t side = step == "1" ? 1 : 0;
      pipeline.play(call, side, tone(4000), seq[side]);
    } else {
      const auto features = static_cast<uint8_t>(std::stoul(step, nullptr, 16));
      pipeline.send(started ? call.feature_update(features)
                            : call.start({.features = features, .rule = rule}));
      started = true;
    }
  }
}

TEST(Pipeline, RecognisesAPromptHoweverItsAudioIsCutIntoPackets) {
  auto prompts = cv::test::english_prompts(3 * 8000);
  prompts.resize(12);
  std::vector<KnownSample> known;
  for (const auto& prompt : prompts) {
    const auto id = static_cast<uint32_t>(known.size());
    known.push_back({id, prompt.name, cv::audio::fingerprint(prompt.samples)});
  }
  Audio audio = silence(8123);
  audio.insert(audio.end(), prompts[7].samples.begin(), prompts[7].samples.end());
  const auto reports = [&](std::size_t packet_samples, uint8_t drift) {
    Pipeline pipeline;
    pipeline.configuration->audio_detection_drift = drift;
    pipeline.publish(3, rule, known);
    const CallPackets call;
    pipeline.send(call.start({.features = cv::media::features_sample_detection, .rule = rule}));
    uint32_t seq = 0;
    pipeline.play(call, 1, audio, seq, packet_samples);
    return pipeline.reports.texts();
  };
  const Texts whole = reports(663, 1);
  ASSERT_FALSE(whole.empty());
  EXPECT_EQ(member(whole[0], "sample_name"), "\"" + prompts[7].name + "\"");
  EXPECT_EQ(member(whole[0], "call_side"), "\"terminator\"");
  EXPECT_EQ(member(whole[0], "version"), "3");
  EXPECT_NEAR(std::stod(member(whole[0], "offset")), 8123 / 8000.0, 0.017);
  for (const std::size_t packet_samples : {160, 37}) {
    EXPECT_EQ(reports(packet_samples, 1), whole) << packet_samples;
  }
  EXPECT_NE(reports(160, 3), whole) << "the configured drift reaches the detectors";
}

TEST(Pipeline, ReportsTheFirstActivityOfASideOnceAndByTheOptionsOfItsRule) {
  const auto reports = [](uint32_t activity_hits) {
    Pipeline pipeline;
    cv::audio::SegmentDetectionOptions of_rule;
    of_rule.activity_hits = activity_hits;
    pipeline.dead_air.on_dead_air_config(dead_air_config(of_rule));
    const CallPackets call;
    pipeline.send(call.start({.features = cv::media::features_activity_detection, .rule = rule}));
    uint32_t seq[2] = {0, 0};
    pipeline.play(call, 0, silence(32000), seq[0]);
    // The tone begins in the second half of frame 99.
    for (const Audio& audio : {silence(100 * 128), tone(8000), silence(8000), tone(8000)}) {
      pipeline.play(call, 1, audio, seq[1]);
    }
    return pipeline.reports.texts();
  };
  const Texts texts = reports(5);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(member(texts[0], "call_side"), "\"terminator\"");
  EXPECT_EQ(member(texts[0], "offset_ms"), "1.584");
  EXPECT_TRUE(reports(100).empty()) << "a second of tone has 63 frames";
}

TEST(Pipeline, HoldsNoMoreCallsThanTheConfiguredLimit) {
  cv::rc_ptr<cv::mn::Configuration> configuration(new cv::mn::Configuration);
  configuration->session_limit = 1;
  Pipeline pipeline(configuration);
  for (const CallPackets& call : {CallPackets(1), CallPackets(2)}) pipeline.send(call.start({}));
  EXPECT_EQ(pipeline.media.manager().refused_sessions(), 1u);
}

TEST(Pipeline, AnalysesFollowTheCallsFeaturesAndTheNewestConfiguration) {
  const std::string options =
      " started, options: version = 7, sig_threshold = 1.5, pow_threshold = 0.75, dev_threshold = "
      "256, activity_hits = 9, silence_hits = 2";
  const std::string later =
      " stream is not yet created, a strategy is being selected on stream creation";
  struct {
    const char* tag;
    std::vector<std::string> steps;
    Texts expected;
    std::size_t reports;
  } const table[] = {
      // Bits of no analysis: the call is held as a zombie, which no update wakes.
      {"AUDIO_DETECTOR: ", {"v4", "c0", "30", "0"}, {}, 0},
      {"AUDIO_DETECTOR: ",
       {"v4", "30", "v9", "30", "0c", "30"},
       {"SYSTEM started (rt v: 4)", "SYSTEM stopped", "SYSTEM started (rt v: 9)"},
       0},
      {"AUDIO_DETECTOR: ",
       {"30", "e3", "30", "v4", "30"},
       {"ERROR ignored due to unknown rule id [5]",
        "ERROR ignored due to absence of hash data (rule id: 5)", "SYSTEM started (rt v: 4)"},
       0},
      {"AUDIO_ACTIVITY: ",
       {"04", "0", "1", "04", "0"},  // the same features once more change nothing
       {"SYSTEM originator" + options, "SYSTEM terminator inactive"},
       1},
      {"AUDIO_ACTIVITY: ",
       {"0c", "1", "04", "1", "0c", "1"},
       {"SYSTEM terminator" + options, "DEBUG originator" + later, "SYSTEM terminator stopped",
        "DEBUG originator" + later, "SYSTEM terminator" + options},
       2},
  };
  cv::audio::SegmentDetectionOptions of_rule;
  of_rule.sig_threshold = 1.5;
  of_rule.activity_hits = 9;
  for (const auto& row : table) {
    cv::test::LogCapture log;
    Pipeline pipeline;
    pipeline.dead_air.on_dead_air_config(dead_air_config(of_rule));
    play_steps(pipeline, row.steps);
    EXPECT_EQ(log.tagged(row.tag + uuid + ": "), row.expected);
    EXPECT_EQ(pipeline.reports.texts().size(), row.reports);
  }
}

}  // namespace
