// The votes of one stream whose frames ascend: for every sample, counters of the shifts that can still
// get a vote, in rings (see audio_vote_layout.h). Counters behind the longest offset are forgotten:
// what matters of them is in the track's total, number of shifts and best shift.
//
// A vote touches a track and, mostly, one cache line of counters. Many streams take turns, so these
// lines are rarely cached; they are asked for some votes ahead. Nearly all votes change counters and
// nothing else, so the loop over them has one branch, taken for the few that are notable.
//
// Counters are bytes. A sample whose counters might pass 255 moves them to 32 bits, for good.
// Memory: that of the layout's chunks voted in, wide rings, and nothing that grows with the call.
// Threads: one at a time. The database outlives the window.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "audio/audio_hash_database.h"

namespace cv::audio {

class VoteWindow {
 public:
  /// What a vote has brought, for a sample with a ring.
  struct Candidate {
    uint32_t position;  // of the sample
    int32_t delta;
    uint32_t sample_frame;
    /// Votes of the shift and its neighbours; of the sample; shifts with votes. This one included.
    uint64_t votes;
    uint64_t total;
    uint64_t shifts;
  };

  class Listener {
   public:
    /// Votes that may reach the sample's threshold; few do not.
    virtual void on_candidate(const Candidate& candidate) = 0;
    /// A vote for a sample that has no ring: not counted here.
    virtual void on_vote_apart(const HashIndexEntry& entry) = 0;

   protected:
    ~Listener() = default;
  };

  explicit VoteWindow(const HashDatabase& database);

  /// Counts the votes of the point at `frame`, in the order of `entries`, and tells the listener as it
  /// goes. Frames never go back (32-bit circle, see PointLog). `drift_frames`, at most
  /// VoteLayout::max_ring_drift_frames, is always the same.
  void vote(uint32_t frame, const HashEntries& entries, uint8_t drift_frames, Listener& listener);

  /// All zero when the sample at `position` has no votes here.
  VoteTrack track(uint32_t position) const;
  /// Only for a sample with votes.
  BestShift best_shift(uint32_t position) const;

 private:
  struct FreeChunk {
    void operator()(std::byte* chunk) const;
  };
  using Chunk = std::unique_ptr<std::byte, FreeChunk>;

  /// The point whose votes are counted.
  template <typename Drift>
  struct Turn;

  template <typename Drift>
  void vote_all(const Turn<Drift>& turn, std::span<const HashIndexEntry> entries);
  template <typename Drift>
  std::size_t vote_closely(const Turn<Drift>& turn, std::span<const HashIndexEntry> entries,
                           std::byte* chunk);
  template <typename Drift, typename Counter>
  void vote_run(const Turn<Drift>& turn, std::span<const HashIndexEntry> run, std::byte* chunk,
                Counter* ring);
  std::byte* allocate(uint32_t chunk);
  uint32_t* wide_ring(const VoteShape& shape, std::byte* chunk);

  void advance(uint32_t frame);
  void clear_blocks(uint32_t begin, uint32_t blocks);

  const VoteLayout& m_layout;
  std::vector<Chunk> m_chunks;  // empty until voted in
  std::vector<std::vector<uint32_t>> m_wide_rings;
  /// The first shift behind those whose counters are cleared; a multiple of the layout's block.
  uint32_t m_cleared_end = 0;
  bool m_started = false;
};

}  // namespace cv::audio
