#include "tools/load/expected_findings.h"

#include <algorithm>

#include "audio/audio_hash_generator.h"
#include "audio/audio_samples_detector.h"
#include "audio/audio_segment_detector.h"
#include "audio/audio_spectrum_generator.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {

namespace {

/// A call side's analysers, fed packet by packet as a node feeds them.
class SideAnalysis final : audio::SpectrumGeneratorCallback,
                           audio::HashGeneratorCallback,
                           audio::SamplesDetectorCallback,
                           audio::SegmentDetectorCallback {
 public:
  SideAnalysis(const LoadRule& rule, uint16_t side, uint8_t drift_frames)
      : m_segments(rule.activity), m_side(side) {
    m_samples.set_database(rule.database);
    m_samples.set_drift(drift_frames);
  }

  void feed(std::span<const int16_t> block, uint32_t number) {
    m_block = number;
    m_spectrum.compute_spectrum(block.data(), block.size(), *this, nullptr);
  }

  std::vector<Finding> findings;

 private:
  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    if (!m_active) m_segments.handle_frame(frame, *this, nullptr);
    m_hashes.compute_hash(frame, *this, nullptr);
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

  audio::SpectrumGenerator m_spectrum;
  audio::HashGenerator m_hashes;
  audio::SamplesDetector m_samples;
  audio::SegmentDetector m_segments;
  const uint16_t m_side;
  uint32_t m_block = 0;
  bool m_active = false;
};

}  // namespace

std::vector<Finding> expected_findings(std::span<const int16_t> audio, uint16_t side,
                                       const LoadRule& rule, uint8_t drift_frames) {
  SideAnalysis analysis(rule, side, drift_frames);
  for (std::size_t block = 0; block * block_samples < audio.size(); ++block) {
    const std::size_t begin = block * block_samples;
    analysis.feed(audio.subspan(begin, std::min(block_samples, audio.size() - begin)),
                  static_cast<uint32_t>(block));
  }
  return std::move(analysis.findings);
}

}  // namespace cv::tools
