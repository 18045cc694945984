// The votes of a whole stream for one sample, counted again with every shift kept.
//
// The node's detector forgets what cannot change its findings any more, and never knows a runner-up; to
// keep more there would cost every call. So whoever wants to see why a sample was missed counts again,
// at leisure: from the sample's own points, by the detector's own score, vote by vote in its order. A
// test holds the two together: what reaches the threshold here is what the detector announces, bit by bit.
//
// Memory: 8 bytes a frame of the stream, given back with each count. Threads: any, at once.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "audio/audio_hash_database.h"
#include "audio/audio_samples_detector.h"
#include "tools/analyse/call_trace.h"

namespace cv::tools {

class SampleVotes {
 public:
  SampleVotes(const audio::HashSample& sample, uint8_t drift_frames);

  struct Vote {
    audio::HashPoint point;
    uint64_t total;
    uint32_t shifts;
    ScoredShift voted;
  };

  const audio::SampleMetadata& metadata() const { return *m_metadata; }

  /// `points` ascend by frame. `on_vote` gets every vote for the sample, in the detector's order.
  template <typename OnVote>
  void count(std::span<const audio::HashPoint> points, const OnVote& on_vote) const;

  /// The largest excess of a score over the threshold; below all scores when there is no vote.
  double nearest(std::span<const audio::HashPoint> points) const;
  SampleTrack track(std::span<const audio::HashPoint> points) const;

  /// The shifts that `points`, not empty, can vote for, with their neighbours.
  int64_t lowest_shift() const { return -int64_t{m_longest_offset} - m_drift; }
  std::size_t shift_count(std::span<const audio::HashPoint> points) const;

 private:
  rc_ptr<audio::SampleMetadata> m_metadata;
  rc_ptr<audio::HashDatabase> m_index;  // of this sample alone
  uint32_t m_longest_offset = 0;
  uint8_t m_drift;
};

template <typename OnVote>
void SampleVotes::count(std::span<const audio::HashPoint> points, const OnVote& on_vote) const {
  if (points.empty()) return;
  std::vector<uint32_t> hits(shift_count(points));
  uint64_t total = 0;
  uint32_t shifts = 0;
  for (const audio::HashPoint& point : points) {
    for (const audio::HashIndexEntry& entry : m_index->entries(point.hash).by_position()) {
      const int64_t shift = int64_t{point.offset} - entry.offset;
      const auto at = static_cast<std::size_t>(shift - lowest_shift());
      shifts += hits[at]++ == 0;
      ++total;
      uint32_t votes = 0;
      for (std::size_t near = at - m_drift; near <= at + m_drift; ++near) votes += hits[near];
      on_vote(Vote{point,
                   total,
                   shifts,
                   {static_cast<int32_t>(shift), votes,
                    audio::SamplesDetector::score(votes, total, shifts)}});
    }
  }
}

}  // namespace cv::tools
