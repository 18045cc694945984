#include "audio/audio_segment_detector.h"

#include <cmath>

#include "audio/audio_spectrum_statistics.h"

namespace cv::audio {

namespace {

/// Of a flat spectrum there is little but what the entropy was rounded by: 1e-12 at most, times the
/// logarithm of the largest power.
bool tonal_power_in_doubt(const SpectrumFrame& frame, double threshold) {
  return std::fabs(tonal_power(frame) - threshold) < 1e-10;
}

}  // namespace

double tonal_power(const SpectrumFrame& frame) {
  const double power = frame.power > 1.0 ? std::log10(frame.power) : 0;
  return power * (1 - frame.entropy);
}

void SegmentDetector::handle_frame(const SpectrumFrame& frame, SegmentDetectorCallback& callback,
                                   void* user) {
  if (is_active(frame)) {
    handle_active(frame.index, callback, user);
  } else {
    handle_silent(frame.index, callback, user);
  }
}

bool SegmentDetector::is_active(const SpectrumFrame& frame) const {
  if (frame.amplitude < m_options.sig_threshold) return false;
  const bool doubtful = in_doubt(frame.deviation, m_options.dev_threshold) ||
                        tonal_power_in_doubt(frame, m_options.pow_threshold);
  return doubtful ? has_active_spectrum(with_exact_statistics(frame)) : has_active_spectrum(frame);
}

bool SegmentDetector::has_active_spectrum(const SpectrumFrame& frame) const {
  return frame.deviation >= m_options.dev_threshold ||
         tonal_power(frame) >= m_options.pow_threshold;
}

void SegmentDetector::handle_active(uint64_t index, SegmentDetectorCallback& callback, void* user) {
  m_silence_count = 0;
  if (m_activity_count == 0) m_segment.offset = index;
  ++m_activity_count;
  if (m_activity_count != m_options.activity_hits || m_active) return;
  m_active = true;
  m_segment.type = Segment::start;
  callback.on_segment_data(m_segment, user);
}

void SegmentDetector::handle_silent(uint64_t index, SegmentDetectorCallback& callback, void* user) {
  if (m_activity_count == 0) return;
  if (m_silence_count == m_options.silence_hits) {
    m_activity_count = 0;
    if (m_active) {
      m_active = false;
      m_segment.type = Segment::end;
      m_segment.offset = index + 1 - m_options.silence_hits;
      callback.on_segment_data(m_segment, user);
    }
  }
  ++m_silence_count;
}

}  // namespace cv::audio
