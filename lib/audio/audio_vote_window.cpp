#include "audio/audio_vote_window.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

namespace cv::audio {

namespace {

constexpr std::align_val_t chunk_alignment{64};
// How many runs ahead memory is asked for: about what one run takes, times this, is a cache miss.
constexpr int runs_ahead = 8;

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
    vote_runs(Turn<decltype(drift)>{frame, drift, listener}, entries.runs());
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
void VoteWindow::vote_runs(const Turn<Drift>& turn, HashRunCursor run) {
  const VoteShape* const shapes = m_layout.shapes().data();
  const auto ask_for = [&](const HashRunCursor& later) {
    const VoteShape& shape = shapes[later.position()];
    const std::byte* chunk = m_chunks[shape.chunk].get();
    if (chunk == nullptr) return;
    const std::byte* ring = chunk + shape.ring_position;
    __builtin_prefetch(chunk + shape.track_position, 1);
    __builtin_prefetch(ring + ((turn.frame - later.offsets()[0]) & shape.ring_mask), 1);
    __builtin_prefetch(ring + ((turn.frame - later.offsets()[later.count() - 1]) & shape.ring_mask),
                       1);
  };
  HashRunCursor ahead = run;
  for (int i = 0; i < runs_ahead && ahead; ++i, ahead.next()) ask_for(ahead);
  for (; run; run.next()) {
    if (ahead) {
      ask_for(ahead);
      ahead.next();
    }
    const VoteShape& shape = shapes[run.position()];
    if (!shape.has_ring()) [[unlikely]] {
      turn.listener.on_run_apart(run);
      continue;
    }
    std::byte* const chunk = chunk_of(shape);
    uint8_t* const ring = ring_in(chunk, shape);
    VoteTrack& track = track_in(chunk, shape);
    // No counter exceeds `best`.
    if (track.wide || track.best + uint64_t{run.count()} > std::numeric_limits<uint8_t>::max())
        [[unlikely]] {
      vote_run(turn, run, chunk, wide_ring(run.position(), track, ring));
    } else {
      vote_run(turn, run, chunk, ring);
    }
  }
}

template <typename Counter, typename Drift>
void VoteWindow::vote_run(const Turn<Drift>& turn, const HashRunCursor& run, std::byte* chunk,
                          Counter* ring) {
  const VoteShape& shape = m_layout.shapes()[run.position()];
  VoteTrack& track = track_in(chunk, shape);
  const uint32_t mask = shape.ring_mask;
  const uint32_t* const offsets = run.offsets();
  const uint64_t total_before = track.total;
  const uint32_t least_votes = shape.least_votes(total_before);
  uint32_t shifts = track.shifts;
  uint32_t notable = std::min(track.best + 1, least_votes);
  const uint32_t count = run.count();
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t delta = turn.frame - offsets[i];
    Counter& hits = ring[delta & mask];
    shifts += hits == 0;
    uint32_t votes = ++hits;
    for (uint32_t by = 1; by <= turn.drift; ++by) {
      votes += ring[(delta - by) & mask];
      votes += ring[(delta + by) & mask];
    }
    if (votes < notable) [[likely]]
      continue;
    if (votes > track.best) {
      note_best(shape, chunk, votes, {static_cast<int32_t>(delta), offsets[i]});
      notable = std::min(votes + 1, least_votes);
    }
    const uint64_t total = total_before + i + 1;
    if (votes < least_votes || !m_layout.may_reach(run.position(), votes, total, shifts)) continue;
    turn.listener.on_candidate(
        {run.position(), static_cast<int32_t>(delta), offsets[i], votes, total, shifts});
  }
  track.total = total_before + count;
  track.shifts = shifts;
}

void VoteWindow::note_best(const VoteShape& shape, std::byte* chunk, uint32_t votes,
                           BestShift shift) {
  track_in(chunk, shape).best = votes & 0x7FFFFFFF;
  best_in(chunk, shape) = shift;
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
  for (auto& [position, ring] : m_wide_rings) {
    clear_ring(ring.data(), static_cast<uint32_t>(ring.size() - 1), begin, blocks);
  }
}

std::byte* VoteWindow::chunk_of(const VoteShape& shape) {
  Chunk& chunk = m_chunks[shape.chunk];
  if (!chunk) [[unlikely]] {
    const std::size_t size = m_layout.chunks()[shape.chunk].size_bytes;
    chunk.reset(static_cast<std::byte*>(::operator new(size, chunk_alignment)));
    std::memset(chunk.get(), 0, size);
  }
  return chunk.get();
}

uint32_t* VoteWindow::wide_ring(uint32_t position, VoteTrack& track, const uint8_t* ring) {
  std::vector<uint32_t>& wide = m_wide_rings[position];
  if (!track.wide) {
    wide.assign(ring, ring + m_layout.shapes()[position].ring_mask + 1);
    track.wide = 1;
  }
  return wide.data();
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
