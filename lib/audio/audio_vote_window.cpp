#include "audio/audio_vote_window.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

namespace cv::audio {

namespace {

constexpr std::align_val_t chunk_alignment{64};
// How many votes ahead memory is asked for.
constexpr std::size_t votes_ahead = 16;
// As many votes in a row for one sample are counted together: a steady tone gives thousands.
constexpr std::size_t long_run = 8;
constexpr uint32_t max_byte = std::numeric_limits<uint8_t>::max();

VoteTrack& track_in(std::byte* chunk, const VoteShape& shape) {
  return *reinterpret_cast<VoteTrack*>(chunk + shape.track_position);
}

BestShift& best_in(std::byte* chunk, const VoteShape& shape) {
  return *reinterpret_cast<BestShift*>(chunk + shape.best_position);
}

uint8_t* ring_in(std::byte* chunk, const VoteShape& shape) {
  return reinterpret_cast<uint8_t*>(chunk + shape.ring_position);
}

template <typename Counter>
void clear_ring(Counter* ring, uint32_t mask, uint32_t begin, uint32_t blocks) {
  constexpr uint32_t block = VoteLayout::block_frames;
  if (blocks > mask / block) {
    std::memset(ring, 0, (std::size_t{mask} + 1) * sizeof(Counter));
    return;
  }
  for (uint32_t i = 0; i < blocks; ++i) {
    std::memset(ring + ((begin + i * block) & mask), 0, block * sizeof(Counter));
  }
}

}  // namespace

template <typename Drift>
struct VoteWindow::Turn {
  uint32_t frame;
  Drift drift;
  Listener& listener;

  uint32_t delta(const HashIndexEntry& entry) const { return frame - entry.offset; }

  /// The votes of `delta` and its neighbours, with one more.
  template <typename Counter>
  uint32_t votes_with_this(const Counter* ring, uint32_t mask, uint32_t delta) const {
    uint32_t votes = ring[delta & mask] + 1u;
    for (uint32_t by = 1; by <= drift; ++by) {
      votes += ring[(delta - by) & mask];
      votes += ring[(delta + by) & mask];
    }
    return votes;
  }
};

void VoteWindow::FreeChunk::operator()(std::byte* chunk) const {
  ::operator delete(chunk, chunk_alignment);
}

VoteWindow::VoteWindow(const HashDatabase& database)
    : m_layout(database.layout()), m_chunks(m_layout.chunks().size()) {}

void VoteWindow::vote(uint32_t frame, const HashEntries& entries, uint8_t drift_frames,
                      Listener& listener) {
  advance(frame);
  // The drifts in use have loops of a constant length.
  const auto vote_with = [&](auto drift) {
    vote_all(Turn<decltype(drift)>{frame, drift, listener}, entries.by_position());
  };
  switch (drift_frames) {
    case 0:
      return vote_with(std::integral_constant<uint32_t, 0>());
    case 1:
      return vote_with(std::integral_constant<uint32_t, 1>());
    case 2:
      return vote_with(std::integral_constant<uint32_t, 2>());
    case 3:
      return vote_with(std::integral_constant<uint32_t, 3>());
    default:
      return vote_with(uint32_t{drift_frames});
  }
}

template <typename Drift>
void VoteWindow::vote_all(const Turn<Drift>& turn, std::span<const HashIndexEntry> entries) {
  const VoteShape* const shapes = m_layout.shapes().data();
  // Forced: a function that does nothing but prefetch has no effect in the compiler's eyes.
  const auto ask_for = [&](const HashIndexEntry& entry) __attribute__((always_inline)) {
    const VoteShape& shape = shapes[entry.position];
    const std::byte* chunk = m_chunks[shape.chunk].get();
    if (chunk == nullptr) return;
    __builtin_prefetch(chunk + shape.track_position, 1);
    __builtin_prefetch(chunk + shape.ring_position + (turn.delta(entry) & shape.ring_mask), 1);
  };
  for (std::size_t i = 0; i < std::min(votes_ahead, entries.size()); ++i) ask_for(entries[i]);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (i + votes_ahead < entries.size()) ask_for(entries[i + votes_ahead]);
    const HashIndexEntry& entry = entries[i];
    const VoteShape& shape = shapes[entry.position];
    std::byte* chunk = m_chunks[shape.chunk].get();
    if (chunk == nullptr) [[unlikely]]
      chunk = allocate(shape.chunk);
    VoteTrack& track = track_in(chunk, shape);
    uint8_t* const ring = ring_in(chunk, shape);
    const uint32_t delta = turn.delta(entry);
    const uint32_t votes = turn.votes_with_this(ring, shape.ring_mask, delta);
    if (votes >= track.notable_votes) [[unlikely]] {
      i += vote_closely(turn, entries.subspan(i), chunk) - 1;
      continue;
    }
    uint8_t& hits = ring[delta & shape.ring_mask];
    ++track.total;
    track.shifts += hits == 0;
    ++hits;
  }
}

/// Votes that may be more than counted: the first of `entries`, or as many as are for the same sample
/// if these are many. Gives their number. A new track's votes come here, and all those of a wide ring.
template <typename Drift>
std::size_t VoteWindow::vote_closely(const Turn<Drift>& turn,
                                     std::span<const HashIndexEntry> entries, std::byte* chunk) {
  const uint32_t position = entries.front().position;
  const VoteShape& shape = m_layout.shapes()[position];
  if (!shape.has_ring()) {
    turn.listener.on_vote_apart(entries.front());
    return 1;
  }
  std::size_t count = 1;
  if (entries.size() >= long_run && entries[long_run - 1].position == position) {
    while (count < entries.size() && entries[count].position == position) ++count;
  }
  const BestShift& best = best_in(chunk, shape);
  // No counter exceeds the best.
  if (best.wide_ring != 0 || best.votes + count > max_byte) {
    vote_run(turn, entries.first(count), chunk, wide_ring(shape, chunk));
  } else {
    vote_run(turn, entries.first(count), chunk, ring_in(chunk, shape));
  }
  return count;
}

/// Votes for one sample; its counters are in `ring`.
template <typename Drift, typename Counter>
void VoteWindow::vote_run(const Turn<Drift>& turn, std::span<const HashIndexEntry> run,
                          std::byte* chunk, Counter* ring) {
  const uint32_t position = run.front().position;
  const VoteShape& shape = m_layout.shapes()[position];
  // Copies: counters may alias anything. Written back also when the listener throws.
  struct Copies {
    ~Copies() {
      track.notable_votes =
          best.wide_ring != 0
              ? 0
              : std::min({best.votes + 1, shape.least_votes(track.total), max_byte});
      track_in(chunk, shape) = track;
      best_in(chunk, shape) = best;
    }
    std::byte* chunk;
    const VoteShape& shape;
    VoteTrack track = track_in(chunk, shape);
    BestShift best = best_in(chunk, shape);
  } copies{chunk, shape};
  VoteTrack& track = copies.track;
  BestShift& best = copies.best;
  const uint32_t mask = shape.ring_mask;
  const uint32_t least_votes =
      m_layout.least_votes(position, track.total, track.shifts, run.size());
  for (const HashIndexEntry& entry : run) {
    const uint32_t delta = turn.delta(entry);
    const uint32_t votes = turn.votes_with_this(ring, mask, delta);
    ++track.total;
    track.shifts += ring[delta & mask]++ == 0;
    if (best.votes < votes) {
      best.votes = votes;
      best.delta = static_cast<int32_t>(delta);
      best.last_frame = entry.offset;
    }
    if (votes < least_votes) continue;
    if (!m_layout.may_reach(position, votes, track.total, track.shifts)) continue;
    turn.listener.on_candidate(
        {position, static_cast<int32_t>(delta), entry.offset, votes, track.total, track.shifts});
  }
}

std::byte* VoteWindow::allocate(uint32_t chunk) {
  const std::size_t size = m_layout.chunks()[chunk].size_bytes;
  m_chunks[chunk].reset(static_cast<std::byte*>(::operator new(size, chunk_alignment)));
  std::memset(m_chunks[chunk].get(), 0, size);
  return m_chunks[chunk].get();
}

uint32_t* VoteWindow::wide_ring(const VoteShape& shape, std::byte* chunk) {
  BestShift& best = best_in(chunk, shape);
  if (best.wide_ring == 0) {
    const uint8_t* ring = ring_in(chunk, shape);
    m_wide_rings.emplace_back(ring, ring + shape.ring_mask + 1);
    best.wide_ring = static_cast<uint32_t>(m_wide_rings.size());
  }
  return m_wide_rings[best.wide_ring - 1].data();
}

/// Clears counters of coming shifts, so that those of `frame` and the neighbours behind it are in
/// order. The counters cleared are those of shifts that cannot be voted for again.
void VoteWindow::advance(uint32_t frame) {
  constexpr uint32_t block = VoteLayout::block_frames;
  const uint32_t end = (frame + VoteLayout::max_ring_drift_frames) / block * block + block;
  if (m_started && end != m_cleared_end) clear_blocks(m_cleared_end, (end - m_cleared_end) / block);
  m_cleared_end = end;
  m_started = true;
}

void VoteWindow::clear_blocks(uint32_t begin, uint32_t blocks) {
  for (std::size_t i = 0; i < m_chunks.size(); ++i) {
    if (!m_chunks[i]) continue;
    const VoteLayout::Chunk& chunk = m_layout.chunks()[i];
    for (uint32_t position = chunk.first_sample; position < chunk.first_sample + chunk.samples;
         ++position) {
      const VoteShape& shape = m_layout.shapes()[position];
      if (shape.has_ring()) {
        clear_ring(ring_in(m_chunks[i].get(), shape), shape.ring_mask, begin, blocks);
      }
    }
  }
  for (auto& ring : m_wide_rings) {
    clear_ring(ring.data(), static_cast<uint32_t>(ring.size() - 1), begin, blocks);
  }
}

VoteTrack VoteWindow::track(uint32_t position) const {
  const VoteShape& shape = m_layout.shapes()[position];
  const Chunk& chunk = m_chunks[shape.chunk];
  return chunk ? track_in(chunk.get(), shape) : VoteTrack{};
}

BestShift VoteWindow::best_shift(uint32_t position) const {
  const VoteShape& shape = m_layout.shapes()[position];
  return best_in(m_chunks[shape.chunk].get(), shape);
}

}  // namespace cv::audio
