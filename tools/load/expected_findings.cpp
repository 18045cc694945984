#include "tools/load/expected_findings.h"

#include <algorithm>

#include "audio/audio_hash_generator.h"
#include "audio/audio_samples_detector.h"
#include "audio/audio_segment_detector.h"
#include "audio/audio_spectrum_generator.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {

namespace {

/// Of side 0; side 1 has the next bit.
constexpr unsigned first_activity_feature =
    media::features_activity_detection & -media::features_activity_detection;

/// A call side's analysers, fed packet by packet as a node feeds them.
class SideAnalysis final : audio::SpectrumGeneratorCallback,
                           audio::HashGeneratorCallback,
                           audio::SamplesDetectorCallback,
                           audio::SegmentDetectorCallback {
 public:
  SideAnalysis(const LoadRule& rule, uint16_t side, uint8_t drift_frames)
      : m_rule(rule), m_drift_frames(drift_frames), m_side(side) {
    switch_to(all_features);
  }

  /// As a node does: what was off starts anew, what is on goes on as it was.
  void switch_to(uint8_t features) {
    const bool match = (features & media::features_sample_detection) != 0;
    if (match && !m_matching) {
      m_samples.reset();
      m_samples.set_database(m_rule.database);
      m_samples.set_drift(m_drift_frames);
    }
    m_matching = match;
    const bool watch = (features & first_activity_feature << m_side) != 0;
    if (watch && !m_watching) {
      m_segments = audio::SegmentDetector(m_rule.activity);
      m_active = false;
    }
    m_watching = watch;
  }

  void feed(std::span<const int16_t> block, uint32_t number) {
    m_block = number;
    m_spectrum.compute_spectrum(block.data(), block.size(), *this, nullptr);
  }

  std::vector<Finding> findings;

 private:
  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    if (m_watching && !m_active) m_segments.handle_frame(frame, *this, nullptr);
    if (m_matching) m_hashes.compute_hash(frame, *this, nullptr);
  }
  void on_hash_data(audio::HashPoint point, void*) override {
    m_samples.handle_hash(point, *this, nullptr);
  }
  void on_sample_detected(audio::Match match, void*) override {
    findings.push_back({Finding::Kind::sample, m_side, match.sample->name, m_block});
  }
  void on_segment_data(const audio::Segment& segment, void*) override {
    if (segment.type != audio::Segment::start) return;
    m_active = true;  // a node reports the first activity only
    findings.push_back({Finding::Kind::activity, m_side, {}, m_block});
  }

  const LoadRule& m_rule;
  const uint8_t m_drift_frames;
  audio::SpectrumGenerator m_spectrum;
  audio::HashGenerator m_hashes;
  audio::SamplesDetector m_samples;
  audio::SegmentDetector m_segments;
  const uint16_t m_side;
  uint32_t m_block = 0;
  bool m_matching = false;
  bool m_watching = false;
  bool m_active = false;
};

}  // namespace

std::vector<Finding> expected_findings(const PlayedSide& played, const LoadRule& rule,
                                       uint8_t drift_frames) {
  SideAnalysis analysis(rule, played.side, drift_frames);
  auto next_switch = played.switches.begin();
  for (std::size_t block = 0; block * block_samples < played.audio.size(); ++block) {
    for (; next_switch != played.switches.end() && next_switch->block == block; ++next_switch) {
      analysis.switch_to(next_switch->features);
    }
    if (!played.fates.empty() && !is_heard(played.fates[block])) continue;
    const std::size_t begin = block * block_samples;
    const std::size_t samples = std::min(block_samples, played.audio.size() - begin);
    analysis.feed(played.audio.subspan(begin, samples), static_cast<uint32_t>(block));
  }
  return std::move(analysis.findings);
}

}  // namespace cv::tools
