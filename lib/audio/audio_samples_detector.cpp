#include "audio/audio_samples_detector.h"

#include <algorithm>
#include <cmath>

namespace cv::audio {

namespace {

/// Shifts live on a circle of 2^32: sample offsets come from outside and may be any value.
int32_t shifted(int32_t delta, int by) {
  return static_cast<int32_t>(static_cast<uint32_t>(delta) + static_cast<uint32_t>(by));
}

}  // namespace

double SamplesDetector::score(uint64_t votes, uint64_t total, uint64_t shifts) {
  const auto candidate = static_cast<double>(votes);
  const uint64_t others = total - votes;
  if (others == 0 || shifts == 1) return std::log2(candidate);
  const double ratio = candidate / static_cast<double>(others) * static_cast<double>(shifts - 1);
  return ratio > 1.0 ? std::log2(ratio) : 0.0;
}

/// Counts one vote; `votes` gets those of the shift and its neighbours.
SamplesDetector::DeltaMatch& SamplesDetector::TrackMatch::vote(int32_t delta, uint32_t sample_frame,
                                                               uint8_t drift_frames,
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

void SamplesDetector::TrackMatch::silence_around(int32_t delta) {
  for (int by = -quiet_zone_frames; by <= quiet_zone_frames; ++by) {
    reported.insert(shifted(delta, by));
  }
}

void SamplesDetector::handle_hash(HashPoint point, SamplesDetectorCallback& callback, void* user) {
  // The entries of one sample stand together: the sample and its track are looked up once a run.
  uint32_t sample_id = 0;
  const SampleMetadata* metadata = nullptr;
  TrackMatch* track = nullptr;
  for (const HashDatabaseEntry& entry : m_database->entries(point.hash)) {
    if (track == nullptr || entry.sample_id != sample_id) {
      sample_id = entry.sample_id;
      metadata = m_database->sample(sample_id).metadata.get();
      track = &m_tracks[sample_id];
    }
    const auto delta = static_cast<int32_t>(point.offset - entry.offset);
    uint64_t votes = 0;
    const DeltaMatch& match = track->vote(delta, entry.offset, m_drift, votes);
    if (track->reported.count(delta) != 0) continue;
    const double reached = score(votes, track->total, track->deltas.size());
    if (!(reached >= metadata->threshold)) continue;
    track->silence_around(delta);
    callback.on_sample_detected(
        {m_database->sample(sample_id).metadata, reached, delta, match.first, match.last + 1},
        user);
  }
}

void SamplesDetector::get_match(std::vector<Match>& out) const {
  for (const auto& [sample_id, track] : m_tracks) {
    const rc_ptr<SampleMetadata>& metadata = m_database->sample(sample_id).metadata;
    if (!metadata) continue;
    const double reached = score(track.best, track.total, track.deltas.size());
    if (!(reached >= metadata->threshold)) continue;
    const DeltaMatch& match = track.deltas.at(track.best_delta);
    out.push_back({metadata, reached, track.best_delta, match.first, match.last + 1});
  }
  std::stable_sort(out.begin(), out.end(), score_comparision);
}

}  // namespace cv::audio
