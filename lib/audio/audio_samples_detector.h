// Recognises known samples in one call side. Every point of the stream votes, for each place its
// hash has in the database, for the time shift between stream and sample that would line them up; a
// sample is recognised when the votes for one shift and its neighbours stand out against all
// others. (The voting is that of A. Wang, "An industrial-strength audio search algorithm", ISMIR
// 2003.)
//
// Invariants:
// 1. Every vote counts for as long as the detector lives, also for shifts that are announced already.
// 2. Announcements of one sample lie more than ReportedShifts::quiet_zone_frames apart in shift.
// 3. Which announcements are made, in which order and with which score bits, follows from the points,
//    the database and the drift alone.
// Failure: without memory a point's votes may be missing, in whole or in part, and nothing else is. What
// the callback throws leaves the sample unannounced; the next vote for it announces it again.
//
// A stream's frames ascend; then its votes cost little time and memory (audio_vote_window.h). A stream
// whose frames go back, and a sample with offsets that no recording has, are counted apart, with the
// same result (audio_track_match.h).
// All times are frames. Threads: one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "audio/audio_hash_database.h"
#include "audio/audio_track_match.h"

namespace cv::audio {

/// One recognition.
struct Match {
  rc_ptr<SampleMetadata> sample;
  double score;
  /// Stream frame at which the sample's frame 0 lies; negative when the call joined it midway.
  int32_t offset;
  /// Lowest sample frame that voted for this shift, and the highest plus one.
  uint32_t start;
  uint32_t end;
};

class SamplesDetectorCallback {
 public:
  virtual ~SamplesDetectorCallback() = default;
  virtual void on_sample_detected(Match match, void* user) = 0;
};

class SamplesDetector {
 public:
  static constexpr uint8_t default_drift_frames = 1;

  SamplesDetector();
  SamplesDetector(SamplesDetector&&) noexcept;
  SamplesDetector& operator=(SamplesDetector&&) noexcept;
  ~SamplesDetector();

  /// Back to the new state: no database, default drift, no votes.
  void reset() { *this = SamplesDetector(); }
  /// To be called before the first vote, or after reset(); later, all votes have to be counted anew.
  void set_database(rc_ptr<HashDatabase> database);
  /// How many neighbouring shifts on each side count together with a shift. To be called as
  /// set_database(). Beyond VoteLayout::max_ring_drift_frames votes are counted apart.
  void set_drift(uint8_t drift_frames);
  const rc_ptr<HashDatabase>& database() const { return m_database; }

  /// Votes with one point and announces each recognition through `callback`, which leaves the detector
  /// alone, before it returns. A database must be set. Allocates blocks of counters and points now and
  /// then, nothing else.
  void handle_hash(HashPoint point, SamplesDetectorCallback& callback, void* user);

  /// Appends the best match of every sample that reaches its threshold and is in the database, then
  /// sorts all of `out` by descending score, stable.
  void get_match(std::vector<Match>& out) const;

  /// True when a's score is strictly greater.
  static bool score_comparision(const Match& a, const Match& b) { return a.score > b.score; }

  /// How far `votes` (1 to `total`) for one shift and its neighbours stand out among `total` votes
  /// over `shifts` shifts: the number of doublings above the average of the other shifts; the
  /// doublings of one vote when there is nothing to compare with.
  static double score(uint64_t votes, uint64_t total, uint64_t shifts);

 private:
  struct OrderedVotes;
  class Turn;

  bool in_order(uint32_t frame) const;
  void count_apart();

  rc_ptr<HashDatabase> m_database;
  uint8_t m_drift = default_drift_frames;
  /// The frames have gone back, or the drift is too large: votes are in m_tracks only.
  bool m_apart = false;
  std::unique_ptr<OrderedVotes> m_ordered;            // none until the first vote
  std::unordered_map<uint32_t, TrackMatch> m_tracks;  // votes counted apart, by sample identifier
  std::unordered_map<uint32_t, ReportedShifts> m_reported;  // by sample identifier
};

}  // namespace cv::audio
