// Spectrum frames to segments of activity: each frame is active or silent, and hit counters
// debounce short bursts and short pauses.
//
// Idle -> counting (active frames seen) -> active (start delivered) -> idle (end delivered).
// Threads: one at a time. No allocation.
#pragma once

#include <cstdint>

#include "audio/audio_spectrum_generator.h"

namespace cv::audio {

struct SegmentDetectionOptions {
  /// Least mean absolute sample value of a frame that is not silent.
  double sig_threshold = 1.0;
  /// Spectral deviation from which on a loud enough frame is active outright.
  double dev_threshold = 256.0;
  /// Least tonality-weighted power, log10(power) * (1 - entropy), of any other active frame.
  double pow_threshold = 0.75;
  /// Active frames that start a segment; 0 starts none.
  uint64_t activity_hits = 5;
  /// Silent frames in a row that a segment, or the count towards one, survives.
  uint64_t silence_hits = 2;
};

/// The frame's tonality-weighted power: it favours tonal sound, since energy spread evenly over the
/// spectrum is noise, however loud.
double tonal_power(const SpectrumFrame& frame);

struct Segment {
  static constexpr uint32_t start = 1;
  static constexpr uint32_t end = 3;

  uint32_t type = 0;
  /// Start: the first active frame. End: the ending silent frame + 1 - silence_hits.
  uint64_t offset = 0;
};

class SegmentDetectorCallback {
 public:
  virtual ~SegmentDetectorCallback() = default;
  /// `segment` belongs to the detector and is valid during the call only.
  virtual void on_segment_data(const Segment& segment, void* user) = 0;
};

/// A plain value: assign a new one to start again.
class SegmentDetector {
 public:
  SegmentDetector() = default;
  explicit SegmentDetector(const SegmentDetectionOptions& options) : m_options(options) {}

  const SegmentDetectionOptions& options() const { return m_options; }
  void set_options(const SegmentDetectionOptions& options) { m_options = options; }

  /// Calls `callback` at most once.
  void handle_frame(const SpectrumFrame& frame, SegmentDetectorCallback& callback, void* user);

  /// What handle_frame() takes the frame for, by itself.
  bool is_active(const SpectrumFrame& frame) const;

 private:
  bool has_active_spectrum(const SpectrumFrame& frame) const;
  void handle_active(uint64_t index, SegmentDetectorCallback& callback, void* user);
  void handle_silent(uint64_t index, SegmentDetectorCallback& callback, void* user);

  SegmentDetectionOptions m_options;
  Segment m_segment;
  uint64_t m_activity_count = 0;
  uint64_t m_silence_count = 0;
  bool m_active = false;
};

}  // namespace cv::audio
