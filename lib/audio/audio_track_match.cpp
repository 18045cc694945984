#include "audio/audio_track_match.h"

#include <algorithm>

namespace cv::audio {

namespace {

/// Shifts live on a circle of 2^32: sample offsets come from outside and may be any value.
int32_t shifted(int32_t delta, int by) {
  return static_cast<int32_t>(static_cast<uint32_t>(delta) + static_cast<uint32_t>(by));
}

}  // namespace

const DeltaMatch& TrackMatch::vote(int32_t delta, uint32_t sample_frame, uint8_t drift_frames,
                                   uint64_t& votes) {
  DeltaMatch& match = deltas[delta];
  ++match.hits;
  votes = match.hits;
  for (int distance = 1; distance <= drift_frames; ++distance) {
    for (const int by : {-distance, distance}) {
      const auto neighbour = deltas.find(shifted(delta, by));
      if (neighbour != deltas.end()) votes += neighbour->second.hits;
    }
  }
  match.first = std::min(match.first, sample_frame);
  match.last = std::max(match.last, sample_frame);
  ++total;
  if (best < votes) {
    best = votes;
    best_delta = delta;
  }
  return match;
}

bool ReportedShifts::contains(int32_t delta) const {
  if (m_announced.empty()) return false;
  const uint32_t lowest = static_cast<uint32_t>(delta) - quiet_zone_frames;
  const auto next = std::lower_bound(m_announced.begin(), m_announced.end(), lowest);
  const uint32_t nearest = next == m_announced.end() ? m_announced.front() : *next;
  return nearest - lowest <= 2 * quiet_zone_frames;
}

void ReportedShifts::make_room() {
  if (m_announced.size() == m_announced.capacity()) m_announced.reserve(2 * m_announced.size() + 1);
}

void ReportedShifts::insert(int32_t delta) {
  const auto shift = static_cast<uint32_t>(delta);
  m_announced.insert(std::lower_bound(m_announced.begin(), m_announced.end(), shift), shift);
}

}  // namespace cv::audio
