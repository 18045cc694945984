#include "audio/audio_vote_layout.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace cv::audio {

namespace {

constexpr uint32_t cache_line_bytes = 64;
// A smaller ratio gives smaller bounds, so capping it is safe; it keeps them within 32 bits.
constexpr double max_bound_ratio = 1 << 28;
constexpr uint32_t frames_around =
    1 + 2 * VoteLayout::max_ring_drift_frames + VoteLayout::block_frames;

/// 0: none.
uint32_t ring_length(const VoteLayout::Sample& sample) {
  const uint64_t frames = uint64_t{sample.longest_offset} + frames_around;
  // What any recording of some seconds has is free.
  const uint64_t most =
      uint64_t{4} * cache_line_bytes + VoteLayout::max_ring_bytes_a_point * sample.points;
  if (frames > most || frames > std::numeric_limits<int32_t>::max() / 2) return 0;
  return std::max(static_cast<uint32_t>(std::bit_ceil(frames)), cache_line_bytes);
}

/// How far the votes for a shift have to exceed the average of the others, a little less than exactly:
/// the logarithm and the division of the score round.
double least_ratio(double threshold) {
  if (std::isnan(threshold)) return std::numeric_limits<double>::infinity();  // nothing reaches it
  if (threshold <= 0) return 0;  // no score is below it
  return std::exp2(threshold) * (1 - 1e-9);
}

void set_bounds(VoteShape& shape, double ratio) {
  const double capped = std::min(ratio, max_bound_ratio);
  shape.early_bound = static_cast<uint32_t>(capped);
  shape.late_bound = static_cast<uint32_t>(std::ceil(capped * 0.9));
  shape.late_total = static_cast<uint32_t>(std::ceil(capped * 9)) + 1;
}

uint32_t rounded_up(std::size_t bytes) {
  return static_cast<uint32_t>((bytes + cache_line_bytes - 1) / cache_line_bytes *
                               cache_line_bytes);
}

}  // namespace

VoteLayout::VoteLayout(std::span<const Sample> samples) : m_shapes(samples.size()) {
  std::vector<uint32_t> ring_lengths;
  ring_lengths.reserve(samples.size());
  m_ratios.reserve(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    ring_lengths.push_back(ring_length(samples[i]));
    m_ratios.push_back(least_ratio(samples[i].threshold));
    set_bounds(m_shapes[i], m_ratios[i]);
  }
  place(ring_lengths);
}

uint32_t VoteLayout::least_votes(uint32_t position, uint64_t total, uint64_t shifts,
                                 uint64_t count) const {
  const uint32_t always = m_shapes[position].least_votes(total);
  if (count == 1) return always;
  // c * (n - 1) >= R * (T - c) again, with the least T and the largest n.
  const double ratio = std::min(m_ratios[position], max_bound_ratio);
  const double least =
      ratio * static_cast<double>(total + 1) / (static_cast<double>(shifts + count - 1) + ratio);
  return std::max(always, static_cast<uint32_t>(std::min(least * (1 - 1e-9), max_bound_ratio)));
}

/// Chunk: the tracks of its samples, their best shifts, their rings from a cache line on. A sample
/// without a ring has a cache line in its place.
void VoteLayout::place(std::span<const uint32_t> ring_lengths) {
  const auto end = static_cast<uint32_t>(ring_lengths.size());
  const auto bytes_of = [&](uint32_t i) { return std::max(ring_lengths[i], cache_line_bytes); };
  for (uint32_t first = 0; first < end;) {
    uint32_t last = first;
    for (uint64_t bytes = bytes_of(last++); last < end; ++last) {
      bytes += bytes_of(last);
      if (bytes > max_chunk_ring_bytes) break;
    }
    const uint32_t samples = last - first;
    uint32_t position = rounded_up(samples * (sizeof(VoteTrack) + sizeof(BestShift)));
    for (uint32_t i = first; i < last; ++i) {
      VoteShape& shape = m_shapes[i];
      shape.chunk = static_cast<uint32_t>(m_chunks.size());
      shape.track_position = (i - first) * static_cast<uint32_t>(sizeof(VoteTrack));
      shape.best_position = static_cast<uint32_t>(samples * sizeof(VoteTrack) +  //
                                                  (i - first) * sizeof(BestShift));
      shape.ring_position = position;
      shape.ring_mask = ring_lengths[i] == 0 ? 0 : ring_lengths[i] - 1;
      position += bytes_of(i);
    }
    m_chunks.push_back({first, samples, position});
    first = last;
  }
}

}  // namespace cv::audio
