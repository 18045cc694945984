#include "support/plain_samples_detector.h"

#include <algorithm>
#include <cmath>

namespace cv::test {

namespace {

/// 32-bit shifts wrap around.
int32_t plus(int32_t d, int by) {
  return static_cast<int32_t>(static_cast<uint32_t>(d) + static_cast<uint32_t>(by));
}

}  // namespace

PlainHashDatabase::PlainHashDatabase(const std::vector<audio::HashSample>& given) {
  for (const audio::HashSample& sample : given) {
    samples[sample.metadata->id] = sample;
    for (const audio::HashPoint& point : sample.payload->points) {
      index[point.hash].push_back({sample.metadata->id, point.offset});
    }
  }
}

double PlainSamplesDetector::score(uint64_t c, const TrackMatch& track) {
  const uint64_t T = track.total;
  const uint64_t n = track.deltas.size();
  if (T - c != 0 && n != 1) {
    const double r =
        static_cast<double>(c) / static_cast<double>(T - c) * static_cast<double>(n - 1);
    return r > 1.0 ? std::log2(r) : 0.0;
  }
  return std::log2(static_cast<double>(c));
}

uint64_t PlainSamplesDetector::windowed_count(const TrackMatch& track, int32_t d) const {
  uint64_t c = track.deltas.at(d).hits;
  for (int by = -m_drift; by <= m_drift; ++by) {
    if (by == 0) continue;
    const auto neighbour = track.deltas.find(plus(d, by));
    if (neighbour != track.deltas.end()) c += neighbour->second.hits;
  }
  return c;
}

void PlainSamplesDetector::handle_hash(audio::HashPoint point,
                                       audio::SamplesDetectorCallback& callback, void* user) {
  const auto list = m_database.index.find(point.hash);
  if (list == m_database.index.end()) return;
  for (const audio::HashDatabaseEntry& entry : list->second) {
    const audio::HashSample& sample = m_database.samples.at(entry.sample_id);
    const uint32_t f = entry.offset;
    const auto d = static_cast<int32_t>(point.offset - f);
    TrackMatch& track = m_tracks[entry.sample_id];
    DeltaMatch& match = track.deltas[d];
    ++match.hits;
    const uint64_t c = windowed_count(track, d);
    match.first = std::min(match.first, f);
    match.last = std::max(match.last, f);
    ++track.total;
    if (track.best < c) {
      track.best = c;
      track.best_delta = d;
    }
    if (track.reported.count(d) != 0) continue;
    const double reached = score(c, track);
    if (!(reached >= sample.metadata->threshold)) continue;
    for (int by = -8; by <= 8; ++by) track.reported.insert(plus(d, by));
    callback.on_sample_detected({sample.metadata, reached, d, match.first, match.last + 1}, user);
  }
}

void PlainSamplesDetector::get_match(std::vector<audio::Match>& out) const {
  for (const auto& [id, track] : m_tracks) {
    const audio::HashSample& sample = m_database.samples.at(id);
    const double reached = score(track.best, track);
    if (!(reached >= sample.metadata->threshold)) continue;
    const DeltaMatch& match = track.deltas.at(track.best_delta);
    out.push_back({sample.metadata, reached, track.best_delta, match.first, match.last + 1});
  }
  std::stable_sort(out.begin(), out.end(),
                   [](const audio::Match& a, const audio::Match& b) { return a.score > b.score; });
}

}  // namespace cv::test
