// Where the votes of each sample of a hash database lie in the memory of a stream, and from how many
// votes on a shift is worth a closer look. Worked out once a database; all its streams share it.
//
// A stream counts votes by shift, stream frame minus sample frame. While its frames ascend, only the
// shifts of the last `longest offset` frames can get more votes, so a sample has a ring of counters
// just longer than it is: the votes of a call need no more memory after hours than after seconds.
// The rings of neighbouring samples stand together in chunks; a stream allocates a chunk with the
// first vote in it.
//
// Invariants:
// 1. A ring is a power of two of counters, at least as long as the shifts that can be voted for, the
//    neighbours within `max_ring_drift_frames` of them, and one block of `block_frames` cleared ahead.
// 2. No ring costs more than about `max_ring_bytes_a_point`: offsets come from outside and may be any
//    32-bit value. A sample that would need more has none; its votes are kept apart, in a map.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace cv::audio {

/// The votes of one sample at any shift: what every vote needs.
struct VoteTrack {
  uint64_t total;
  /// Number of shifts with at least one vote.
  uint32_t shifts;
  /// With fewer votes at a shift and its neighbours, nothing but the counters changes.
  uint32_t notable_votes;
};

/// What few votes need.
struct BestShift {
  /// The most votes seen at a shift and its neighbours.
  uint32_t votes;
  /// That shift, and the sample frame of its last vote.
  int32_t delta;
  uint32_t last_frame;
  /// Number of the sample's wide ring; 0: none.
  uint32_t wide_ring;
};

/// Where one sample's votes lie. Positions are bytes from the beginning of the chunk.
struct VoteShape {
  uint32_t chunk;
  uint32_t track_position;
  uint32_t best_position;
  uint32_t ring_position;
  /// Length of the ring minus 1; 0: the sample has none, but one counter that is never used.
  uint32_t ring_mask;
  // Bounds of the votes that can reach the threshold; see least_votes().
  uint32_t early_bound;
  uint32_t late_bound;
  uint32_t late_total;

  bool has_ring() const { return ring_mask != 0; }

  /// No shift with fewer votes can reach the threshold once the sample has `total` votes. With the
  /// ratio R the threshold asks for, c votes of T over n shifts have to satisfy
  /// c * (n - 1) >= R * (T - c), and n is at most T, so c >= R * T / (T - 1 + R). That grows with T:
  /// min(T, R) / 2 is below it at once, 0.9 R from T = 9 R on.
  uint32_t least_votes(uint64_t total) const {
    if (total >= late_total) return late_bound;
    return (total < early_bound ? static_cast<uint32_t>(total) : early_bound) / 2;
  }
};

class VoteLayout {
 public:
  static constexpr uint32_t block_frames = 32;
  static constexpr uint32_t max_ring_drift_frames = 8;
  static constexpr uint64_t max_ring_bytes_a_point = 64;
  /// Of a chunk with more than one sample.
  static constexpr uint64_t max_chunk_ring_bytes = uint64_t{16} * 1024;

  struct Sample {
    uint32_t longest_offset = 0;
    uint64_t points = 0;
    double threshold = 0;
  };
  struct Chunk {
    uint32_t first_sample;
    uint32_t samples;
    uint32_t size_bytes;
  };

  VoteLayout() = default;
  explicit VoteLayout(std::span<const Sample> samples);

  /// By the sample's position in the database.
  const std::vector<VoteShape>& shapes() const { return m_shapes; }
  const std::vector<Chunk>& chunks() const { return m_chunks; }
  /// As VoteShape::least_votes(), for the next `count` votes of the sample at `position`, which has
  /// `total` votes over `shifts` shifts so far; higher, but with a division.
  uint32_t least_votes(uint32_t position, uint64_t total, uint64_t shifts, uint64_t count) const;
  /// False only when `votes` of `total` over `shifts` are certain to score below the threshold of the
  /// sample at `position`. Much cheaper than the score.
  bool may_reach(uint32_t position, uint64_t votes, uint64_t total, uint64_t shifts) const {
    return static_cast<double>(votes) * static_cast<double>(shifts - 1) >=
           m_ratios[position] * static_cast<double>(total - votes);
  }

 private:
  void place(std::span<const uint32_t> ring_lengths);

  std::vector<VoteShape> m_shapes;
  std::vector<double> m_ratios;
  std::vector<Chunk> m_chunks;
};

}  // namespace cv::audio
