#include "tools/evaluate/threshold_sweep.h"

#include <algorithm>

namespace cv::tools {

namespace {

// 16 MB or so; an hour of speech against hundreds of samples has more shifts than that.
constexpr std::size_t max_shifts_remembered = 1 << 20;

}  // namespace

ThresholdSweep::ThresholdSweep(const audio::HashDatabase& database,
                               const std::vector<double>& thresholds, uint8_t drift_frames)
    : m_database(database),
      m_thresholds(thresholds),
      m_drift_frames(drift_frames),
      m_window(database),
      m_reported(database.sample_count() * thresholds.size()) {}

void ThresholdSweep::handle_hash(audio::HashPoint point) {
  const auto entries = m_database.entries(point.hash);
  if (entries.empty()) return;
  m_frame = point.offset;
  m_window.vote(point.offset, entries, m_drift_frames, *this);
}

void ThresholdSweep::on_candidate(const audio::VoteWindow::Candidate& candidate) {
  judge(candidate.position, candidate.delta,
        audio::SamplesDetector::score(candidate.votes, candidate.total, candidate.shifts));
}

void ThresholdSweep::on_vote_apart(const audio::HashIndexEntry& entry) {
  const auto delta = static_cast<int32_t>(m_frame - entry.offset);
  audio::TrackMatch& track = m_apart[entry.position];
  uint64_t votes = 0;
  track.vote(delta, entry.offset, m_drift_frames, votes);
  judge(entry.position, delta,
        audio::SamplesDetector::score(votes, track.total, track.deltas.size()));
}

void ThresholdSweep::judge(uint32_t position, int32_t delta, double score) {
  const auto above = std::upper_bound(m_thresholds.begin(), m_thresholds.end(), score);
  const auto levels = static_cast<uint32_t>(above - m_thresholds.begin());
  if (levels == 0) return;
  if (m_levels_done.size() >= max_shifts_remembered) m_levels_done.clear();
  uint32_t& done = m_levels_done[uint64_t{position} << 32 | static_cast<uint32_t>(delta)];
  for (uint32_t level = done; level < levels; ++level) {
    audio::ReportedShifts& reported = m_reported[position * m_thresholds.size() + level];
    if (reported.contains(delta)) continue;
    reported.insert(delta);
    m_findings.push_back({level, position, delta, m_frame, score});
  }
  done = std::max(done, levels);
}

}  // namespace cv::tools
