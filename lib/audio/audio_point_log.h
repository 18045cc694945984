// The points of one stream that voted, in ascending order of frame.
//
// It answers what the votes were made of without keeping it per shift, and lets them be counted again.
// Eight bytes a point; allocates in blocks of points.
//
// Invariant: frames count from that of the first point; on the 32-bit circle they never go back and
// never get further than `max_frames`. A stream that would break it has to be counted otherwise.
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>

#include "audio/audio_hash_generator.h"

namespace cv::audio {

class PointLog {
 public:
  /// Half the circle: beyond, a shift could come to mean two different times. A year of audio.
  static constexpr uint32_t max_frames = 1u << 31;

  /// True when a point at this frame may be appended: it is at or after the last one's.
  bool accepts(uint32_t frame) const {
    if (m_points.empty()) return true;
    return elapsed(frame) >= elapsed(m_points.back().offset) && elapsed(frame) < max_frames;
  }
  void append(HashPoint point) { m_points.push_back(point); }

  /// The lowest offset among `sample`, in any order, at which this stream had the same hash `delta`
  /// frames later; none when there is no such point.
  std::optional<uint32_t> first_vote(std::span<const HashPoint> sample, int32_t delta) const;

  const std::deque<HashPoint>& points() const { return m_points; }

 private:
  uint32_t elapsed(uint32_t frame) const { return frame - m_points.front().offset; }
  std::deque<HashPoint>::const_iterator first_at_or_after(uint32_t elapsed_frames) const;

  std::deque<HashPoint> m_points;
};

}  // namespace cv::audio
