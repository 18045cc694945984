#include "audio/audio_samples_detector.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "audio/audio_point_log.h"
#include "audio/audio_vote_window.h"

namespace cv::audio {

/// The votes of a stream whose frames have ascended so far.
struct SamplesDetector::OrderedVotes {
  explicit OrderedVotes(const HashDatabase& database) : window(database) {}

  /// The lowest frame of the sample at `position` that voted for `delta`; there is one.
  uint32_t first_vote(const HashDatabase& database, uint32_t position, int32_t delta) const {
    uint32_t first = 0xFFFFFFFF;
    for (const auto& payload : database.payloads_at(position)) {
      first = std::min(first, points.first_vote(payload->points, delta).value_or(first));
    }
    return first;
  }

  PointLog points;
  VoteWindow window;
};

/// Judges the votes of one point.
class SamplesDetector::Turn final : public VoteWindow::Listener {
 public:
  Turn(SamplesDetector& detector, uint32_t frame, SamplesDetectorCallback& callback, void* user)
      : m_detector(detector), m_frame(frame), m_callback(callback), m_user(user) {}

  void on_candidate(const VoteWindow::Candidate& candidate) override {
    const HashDatabase& database = *m_detector.m_database;
    const rc_ptr<SampleMetadata>& metadata = database.sample_at(candidate.position).metadata;
    const auto reached = newly_reached(*metadata, candidate.delta, candidate.votes, candidate.total,
                                       candidate.shifts);
    if (!reached) return;
    const uint32_t first =
        m_detector.m_ordered->first_vote(database, candidate.position, candidate.delta);
    // Frames ascend: this vote is the last of its shift.
    announce({metadata, *reached, candidate.delta, first, candidate.sample_frame + 1});
  }

  void on_vote_apart(const HashIndexEntry& entry) override {
    const SampleMetadata& metadata = *m_detector.m_database->sample_at(entry.position).metadata;
    vote_apart({metadata.id, entry.offset});
  }

  void vote_apart(HashDatabaseEntry entry) {
    const auto delta = static_cast<int32_t>(m_frame - entry.offset);
    TrackMatch& track = m_detector.m_tracks[entry.sample_id];
    uint64_t votes = 0;
    const DeltaMatch& match = track.vote(delta, entry.offset, m_detector.m_drift, votes);
    const rc_ptr<SampleMetadata>& metadata =
        m_detector.m_database->sample(entry.sample_id).metadata;
    const auto reached = newly_reached(*metadata, delta, votes, track.total, track.deltas.size());
    if (reached) announce({metadata, *reached, delta, match.first, match.last + 1});
  }

 private:
  /// The score, if it reaches the threshold and nothing near was announced before.
  std::optional<double> newly_reached(const SampleMetadata& metadata, int32_t delta, uint64_t votes,
                                      uint64_t total, uint64_t shifts) const {
    const double reached = score(votes, total, shifts);
    if (!(reached >= metadata.threshold)) return std::nullopt;
    const auto reported = m_detector.m_reported.find(metadata.id);
    if (reported != m_detector.m_reported.end() && reported->second.contains(delta)) {
      return std::nullopt;
    }
    return reached;
  }

  void announce(Match match) {
    ReportedShifts& reported = m_detector.m_reported[match.sample->id];
    reported.make_room();
    const int32_t shift = match.offset;
    m_callback.on_sample_detected(std::move(match), m_user);
    reported.insert(shift);
  }

  SamplesDetector& m_detector;
  const uint32_t m_frame;
  SamplesDetectorCallback& m_callback;
  void* const m_user;
};

SamplesDetector::SamplesDetector() = default;
SamplesDetector::SamplesDetector(SamplesDetector&&) noexcept = default;
SamplesDetector& SamplesDetector::operator=(SamplesDetector&&) noexcept = default;
SamplesDetector::~SamplesDetector() = default;

double SamplesDetector::score(uint64_t votes, uint64_t total, uint64_t shifts) {
  const auto candidate = static_cast<double>(votes);
  const uint64_t others = total - votes;
  if (others == 0 || shifts == 1) return std::log2(candidate);
  const double ratio = candidate / static_cast<double>(others) * static_cast<double>(shifts - 1);
  return ratio > 1.0 ? std::log2(ratio) : 0.0;
}

void SamplesDetector::set_database(rc_ptr<HashDatabase> database) {
  if (m_ordered) count_apart();
  m_database = std::move(database);
}

void SamplesDetector::set_drift(uint8_t drift_frames) {
  if (m_ordered && drift_frames != m_drift) count_apart();
  m_drift = drift_frames;
}

void SamplesDetector::handle_hash(HashPoint point, SamplesDetectorCallback& callback, void* user) {
  const HashDatabase::Entries entries = m_database->entries(point.hash);
  if (entries.empty()) return;
  Turn turn(*this, point.offset, callback, user);
  if (in_order(point.offset)) {
    if (!m_ordered) m_ordered = std::make_unique<OrderedVotes>(*m_database);
    m_ordered->points.append(point);
    m_ordered->window.vote(point.offset, entries, m_drift, turn);
  } else {
    if (!m_apart) count_apart();
    for (const HashDatabaseEntry entry : entries) turn.vote_apart(entry);
  }
}

bool SamplesDetector::in_order(uint32_t frame) const {
  if (m_apart || m_drift > VoteLayout::max_ring_drift_frames) return false;
  return !m_ordered || m_ordered->points.accepts(frame);
}

/// From now on all votes are counted apart. Those so far are counted again, from the points; what they
/// had to announce is announced.
void SamplesDetector::count_apart() {
  if (m_ordered) {
    std::unordered_map<uint32_t, TrackMatch> tracks;
    for (const HashPoint& point : m_ordered->points.points()) {
      for (const HashDatabaseEntry entry : m_database->entries(point.hash)) {
        uint64_t votes = 0;
        tracks[entry.sample_id].vote(static_cast<int32_t>(point.offset - entry.offset),
                                     entry.offset, m_drift, votes);
      }
    }
    m_tracks = std::move(tracks);
    m_ordered.reset();
  }
  m_apart = true;
}

void SamplesDetector::get_match(std::vector<Match>& out) const {
  const auto add = [&out](const rc_ptr<SampleMetadata>& metadata, double reached, int32_t delta,
                          uint32_t first, uint32_t last) {
    out.push_back({metadata, reached, delta, first, last + 1});
  };
  const auto positions = static_cast<uint32_t>(m_ordered ? m_database->sample_count() : 0);
  for (uint32_t position = 0; position < positions; ++position) {
    const rc_ptr<SampleMetadata>& metadata = m_database->sample_at(position).metadata;
    const VoteTrack track = m_ordered->window.track(position);
    if (track.total == 0) continue;
    const BestShift best = m_ordered->window.best_shift(position);
    const double reached = score(best.votes, track.total, track.shifts);
    if (!(reached >= metadata->threshold)) continue;
    // A vote at the best shift makes it better, so the vote that made it the best was its last.
    add(metadata, reached, best.delta, m_ordered->first_vote(*m_database, position, best.delta),
        best.last_frame);
  }
  for (const auto& [sample_id, track] : m_tracks) {
    const rc_ptr<SampleMetadata>& metadata = m_database->sample(sample_id).metadata;
    if (!metadata) continue;
    const double reached = score(track.best, track.total, track.deltas.size());
    if (!(reached >= metadata->threshold)) continue;
    const DeltaMatch& match = track.deltas.at(track.best_delta);
    add(metadata, reached, track.best_delta, match.first, match.last);
  }
  std::stable_sort(out.begin(), out.end(), score_comparision);
}

}  // namespace cv::audio
