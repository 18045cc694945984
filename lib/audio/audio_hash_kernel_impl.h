// Magnitudes to a hash, for the instruction set of the source that includes it.
//
// Each jump and its position are packed into one double, so that a sorting network of minima and maxima
// finds the four highest. The low six bits of the jump make room for 63 - position: among equal jumps
// the lower position comes first. Jumps that differ in those six bits only are left undecided.
#pragma once

#include "audio/audio_spectrum_kernel.h"
#include "audio/audio_spectrum_vector.h"

namespace cv::audio {
namespace {

inline constexpr uint64_t position_mask = 63;

/// What to keep of the jump in each slot and what to put in. Slot i has position i + 1; slot 63 has no
/// jump, and the lowest key.
struct KeyMasks {
  alignas(64) uint64_t kept[64];
  alignas(64) uint64_t position[64];

  constexpr KeyMasks() : kept(), position() {
    constexpr uint64_t sign = uint64_t{1} << 63;
    for (uint64_t i = 0; i < 63; ++i) {
      kept[i] = ~(sign | position_mask);
      position[i] = 62 - i;
    }
  }
};
inline constexpr KeyMasks key_masks;

inline Vec keys_at(const double* magnitudes, size_t slot) {
  const Vec jump = load_unaligned(magnitudes + slot + 1) - load_unaligned(magnitudes + slot);
  const Bits height = reinterpret_cast<Bits>(jump) & load_bits(key_masks.kept + slot);
  return reinterpret_cast<Vec>(height | load_bits(key_masks.position + slot));
}

/// Per lane, in descending order.
struct Four {
  Vec v[4];
};

inline void order(Vec& a, Vec& b) {
  const Vec high = larger(a, b);
  b = smaller(a, b);
  a = high;
}

inline Four sorted(Four f) {
  order(f.v[0], f.v[1]);
  order(f.v[2], f.v[3]);
  order(f.v[0], f.v[2]);
  order(f.v[1], f.v[3]);
  order(f.v[1], f.v[2]);
  return f;
}

/// The highest four of both: a bitonic sequence, which two more steps sort. (K. E. Batcher, AFIPS
/// Spring Joint Computer Conference 32 (1968) 307-314.)
inline Four merged(const Four& a, const Four& b) {
  Four f;
  for (size_t i = 0; i < 4; ++i) f.v[i] = larger(a.v[i], b.v[3 - i]);
  order(f.v[0], f.v[2]);
  order(f.v[1], f.v[3]);
  order(f.v[0], f.v[1]);
  order(f.v[2], f.v[3]);
  return f;
}

template <size_t Distance>
inline Four merged_lanes(const Four& f) {
  Four other;
  for (size_t i = 0; i < 4; ++i) other.v[i] = exchanged<Distance>(f.v[i]);
  return merged(f, other);
}

inline Four highest_four(const Vec* keys) {
  Four top = sorted({keys[0], keys[1], keys[2], keys[3]});
  for (size_t i = 4; i < 64 / lanes; i += 4) {
    top = merged(top, sorted({keys[i], keys[i + 1], keys[i + 2], keys[i + 3]}));
  }
  if constexpr (lanes == 4) top = merged_lanes<lanes / 2>(top);
  return merged_lanes<1>(top);
}

/// Number of keys that are at least `least`, in all lanes.
inline uint64_t count_from(const Vec* keys, Vec least) {
  Bits counts = {};
  for (size_t i = 0; i < 64 / lanes; ++i) counts -= reinterpret_cast<Bits>(keys[i] >= least);
  uint64_t count = 0;
  for (size_t lane = 0; lane < lanes; ++lane) count += counts[lane];
  return count;
}

inline uint32_t hash(const double* magnitudes) {
  Vec keys[64 / lanes];
  for (size_t i = 0; i < 64 / lanes; ++i) keys[i] = keys_at(magnitudes, i * lanes);
  const Four top = highest_four(keys);
  uint32_t packed = 0;
  uint64_t above = ~uint64_t{0};
  for (size_t rank = 0; rank < 4; ++rank) {
    const uint64_t key = reinterpret_cast<Bits>(top.v[rank])[0];
    if ((key ^ above) <= position_mask) return SpectrumKernel::undecided;
    packed |= static_cast<uint32_t>(63 - (key & position_mask)) << (6 * rank);
    above = key;
  }
  const Bits height_of_fourth = reinterpret_cast<Bits>(top.v[3]) & ~position_mask;
  const bool tie = count_from(keys, reinterpret_cast<Vec>(height_of_fourth)) != 4;
  return tie ? SpectrumKernel::undecided : packed;
}

}  // namespace
}  // namespace cv::audio
