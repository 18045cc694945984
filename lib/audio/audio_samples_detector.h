// Recognises known samples in one call side. Every point of the stream votes, for each place its
// hash has in the database, for the time shift between stream and sample that would line them up; a
// sample is recognised when the votes for one shift and its neighbours stand out against all
// others. (The voting is that of A. Wang, "An industrial-strength audio search algorithm", ISMIR
// 2003.)
//
// Invariants:
// 1. Votes are counted for as long as the detector lives; none is forgotten, not even for shifts
// that
//    are already announced.
// 2. Announcements of one sample lie more than `quiet_zone_frames` apart in shift.
// 3. Which announcements are made, in which order and with which score bits, follows from the
// points,
//    the database and the drift alone.
// All times are frames. Threads: one at a time.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "audio/audio_hash_database.h"

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
  static constexpr int quiet_zone_frames = 8;

  /// Back to the new state: no database, default drift, no votes.
  void reset() { *this = SamplesDetector(); }
  /// To be called before the first vote, or after reset().
  void set_database(rc_ptr<HashDatabase> database) { m_database = std::move(database); }
  /// How many neighbouring shifts on each side count together with a shift.
  void set_drift(uint8_t drift_frames) { m_drift = drift_frames; }
  const rc_ptr<HashDatabase>& database() const { return m_database; }

  /// Votes with one point and announces each recognition through `callback` before it returns. A
  /// database must be set. Allocates for samples and shifts not voted for before, nothing else.
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
  struct DeltaMatch {
    uint32_t hits = 0;
    uint32_t first = 0xFFFFFFFF;
    uint32_t last = 0;
  };
  struct TrackMatch {
    DeltaMatch& vote(int32_t delta, uint32_t sample_frame, uint8_t drift_frames, uint64_t& votes);
    void silence_around(int32_t delta);

    uint64_t total = 0;
    uint64_t best = 0;
    int32_t best_delta = 0;
    std::unordered_map<int32_t, DeltaMatch> deltas;
    std::unordered_set<int32_t> reported;
  };

  rc_ptr<HashDatabase> m_database;
  uint8_t m_drift = default_drift_frames;
  std::unordered_map<uint32_t, TrackMatch> m_tracks;
};

}  // namespace cv::audio
