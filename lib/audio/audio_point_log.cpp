#include "audio/audio_point_log.h"

#include <algorithm>
#include <utility>

namespace cv::audio {

std::optional<uint32_t> PointLog::first_vote(std::span<const HashPoint> sample,
                                             int32_t delta) const {
  std::optional<uint32_t> first;
  if (m_points.empty()) return first;
  const uint32_t last = elapsed(m_points.back().offset);
  auto logged = m_points.begin();  // the first at `reached` or after
  uint32_t reached = 0;
  for (const HashPoint& point : sample) {
    if (first && point.offset >= *first) continue;
    const uint32_t sought = elapsed(point.offset + static_cast<uint32_t>(delta));
    if (sought > last) continue;  // before the first frame, too
    // Points usually ascend: from one to the next it is a few steps.
    if (sought < reached || sought - reached > 64) logged = first_at_or_after(sought);
    reached = sought;
    while (elapsed(logged->offset) < sought) ++logged;
    for (auto same = logged; same != m_points.end() && elapsed(same->offset) == sought; ++same) {
      if (same->hash == point.hash) first = point.offset;
    }
  }
  return first;
}

std::deque<HashPoint>::const_iterator PointLog::first_at_or_after(uint32_t elapsed_frames) const {
  const auto before = [this](const HashPoint& logged, uint32_t frames) {
    return elapsed(logged.offset) < frames;
  };
  return std::lower_bound(m_points.begin(), m_points.end(), elapsed_frames, before);
}

}  // namespace cv::audio
