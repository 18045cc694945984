#include "tools/evaluate/evaluation.h"

#include <algorithm>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>

#include "audio/audio_fingerprint.h"
#include "audio/audio_spectrum_generator.h"
#include "tools/evaluate/threshold_sweep.h"

namespace cv::tools {

namespace {

/// A finding this long after the sample's end is still its own: the frames overlap it, and what follows
/// may give the last vote.
constexpr std::size_t grace_samples = audio_rate_hz / 2;

/// Samples heard when the frame is complete.
std::size_t heard_samples(uint32_t frame) {
  return std::size_t{frame} * audio::frame_hop_samples + audio::frame_window_samples;
}

/// Depends on the condition by its text, so that its numbers are the same whatever else is evaluated.
std::mt19937_64 random_of(uint64_t seed, const std::string& condition) {
  std::vector<uint32_t> seeds = {static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32)};
  for (const char c : condition) seeds.push_back(static_cast<unsigned char>(c));
  std::seed_seq sequence(seeds.begin(), seeds.end());
  return std::mt19937_64(sequence);
}

}  // namespace

/// Judges the findings of one side under one condition and setting.
class Evaluation::SideJudge {
 public:
  SideJudge(const EvaluatedSide& side, const std::vector<SampleRange>& ranges, std::size_t levels)
      : m_side(side), m_ranges(ranges), m_levels(levels) {}

  void judge(const std::vector<ThresholdSweep::Finding>& findings, std::size_t condition,
             std::size_t setting, CallOutcome& out) {
    const std::size_t first = out.plays.size();
    for (const PlayedSample& play : m_side.plays) {
      out.plays.push_back({condition, setting, play.position, std::vector<float>(m_levels, -1)});
    }
    std::map<std::tuple<FindingCount::Kind, uint32_t, uint32_t>, uint32_t> counts;
    for (const auto& finding : findings) {
      if (is_right(finding, out, first)) continue;
      ++counts[{kind_of(finding), finding.position, finding.level}];
    }
    for (const auto& [key, count] : counts) {
      const auto [kind, position, level] = key;
      out.findings.push_back({kind, condition, setting, position, level, count});
    }
  }

 private:
  bool covers(std::size_t play, const ThresholdSweep::Finding& finding) const {
    const std::size_t heard = heard_samples(finding.frame);
    return heard > m_ranges[play].begin && heard <= m_ranges[play].end + grace_samples;
  }

  /// True when it is of a sample that is being played; the first of each level is that play's finding.
  bool is_right(const ThresholdSweep::Finding& finding, CallOutcome& out, std::size_t first) const {
    for (std::size_t play = 0; play < m_side.plays.size(); ++play) {
      if (m_side.plays[play].position != finding.position || !covers(play, finding)) continue;
      float& latency_s = out.plays[first + play].latency_s[finding.level];
      if (latency_s < 0) {
        latency_s =
            static_cast<float>(heard_samples(finding.frame) - m_ranges[play].begin) / audio_rate_hz;
      }
      return true;
    }
    return false;
  }

  FindingCount::Kind kind_of(const ThresholdSweep::Finding& finding) const {
    if (m_side.plays.empty()) return FindingCount::Kind::background;
    for (std::size_t play = 0; play < m_ranges.size(); ++play) {
      if (covers(play, finding)) return FindingCount::Kind::wrong;
    }
    return FindingCount::Kind::stray;
  }

  const EvaluatedSide& m_side;
  const std::vector<SampleRange>& m_ranges;
  const std::size_t m_levels;
};

CallOutcome Evaluation::evaluate(const EvaluatedCall& call, std::size_t number) const {
  CallOutcome out;
  const AudioChannels channels = call.read();
  for (const SideChannel& each : channels_of(call, channels.size())) {
    for (const PlayedSample& play : each.side->plays) {
      if (play.begin < channels[each.channel].size()) continue;
      throw std::runtime_error(call.name + ": " + m_set.samples()[play.position].name +
                               " is said to start behind its end");
    }
    evaluate_side(*each.side, channels[each.channel],
                  m_plan.seed * 0x9E3779B97F4A7C15 + 2 * number + each.channel, out);
  }
  return out;
}

void Evaluation::evaluate_side(const EvaluatedSide& side, const std::vector<int16_t>& audio,
                               uint64_t seed, CallOutcome& out) const {
  const bool background = side.plays.empty();
  const auto& conditions = background ? m_plan.background_conditions : m_plan.conditions;
  for (std::size_t condition = 0; condition < conditions.size(); ++condition) {
    std::vector<int16_t> heard = audio;
    std::vector<SampleRange> ranges;
    for (const PlayedSample& play : side.plays) {
      ranges.push_back({play.begin, play.begin + m_set.audio(play.position).size()});
    }
    auto random = random_of(seed, conditions[condition].text());
    conditions[condition].apply(heard, ranges, random);
    if (background) out.background_s += static_cast<double>(heard.size()) / audio_rate_hz;
    const auto points = audio::fingerprint(heard);
    for (std::size_t setting = 0; setting < m_plan.settings.size(); ++setting) {
      ThresholdSweep sweep(*m_databases[setting], m_plan.thresholds,
                           m_plan.settings[setting].drift_frames);
      for (const audio::HashPoint& point : points) sweep.handle_hash(point);
      SideJudge(side, ranges, m_plan.thresholds.size())
          .judge(sweep.findings(), background ? 0 : condition, setting, out);
    }
  }
}

}  // namespace cv::tools
