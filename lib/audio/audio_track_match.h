// The votes for one sample in tables that take any shift in any order. Exact always, slow and large:
// for samples whose offsets no recording has, and for streams whose frames go back. All others are
// counted in audio_vote_window.h.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace cv::audio {

/// The votes for one shift.
struct DeltaMatch {
  uint32_t hits = 0;
  /// Lowest and highest sample frame that voted.
  uint32_t first = 0xFFFFFFFF;
  uint32_t last = 0;
};

/// The votes for one sample.
struct TrackMatch {
  /// Counts one vote of the frame `sample_frame` for the shift `delta`; `votes` gets those of the
  /// shift and its neighbours up to `drift_frames` to each side.
  const DeltaMatch& vote(int32_t delta, uint32_t sample_frame, uint8_t drift_frames,
                         uint64_t& votes);

  uint64_t total = 0;
  /// Most votes seen for a shift and its neighbours, and the first shift that reached them.
  uint64_t best = 0;
  int32_t best_delta = 0;
  std::unordered_map<int32_t, DeltaMatch> deltas;
};

/// The shifts near which a sample has been announced, on the circle of 32 bits.
class ReportedShifts {
 public:
  static constexpr uint32_t quiet_zone_frames = 8;

  /// True when an announced shift lies within the quiet zone of `delta`.
  bool contains(int32_t delta) const;
  /// The next insert() will not throw.
  void make_room();
  /// `delta` is not contained.
  void insert(int32_t delta);

 private:
  std::vector<uint32_t> m_announced;  // ascending
};

}  // namespace cv::audio
