#include "audio/audio_point_log.h"

#include <algorithm>

namespace cv::audio {

bool PointLog::contains(HashPoint point) const {
  const auto before = [this](const HashPoint& logged, uint32_t frame) {
    return elapsed(logged.offset) < elapsed(frame);
  };
  auto logged = std::lower_bound(m_points.begin(), m_points.end(), point.offset, before);
  for (; logged != m_points.end() && logged->offset == point.offset; ++logged) {
    if (logged->hash == point.hash) return true;
  }
  return false;
}

std::optional<uint32_t> PointLog::first_vote(std::span<const HashPoint> sample,
                                             int32_t delta) const {
  std::optional<uint32_t> first;
  for (const HashPoint& point : sample) {
    // Points usually ascend: the search is over with the first hit.
    if (first && point.offset >= *first) continue;
    if (contains({point.hash, point.offset + static_cast<uint32_t>(delta)})) first = point.offset;
  }
  return first;
}

}  // namespace cv::audio
