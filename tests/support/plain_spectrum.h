// Spectra and fingerprint points worked out in the plainest way: sample by sample into a ring, the
// textbook transform, whole sums, a full sort. The yardstick of what the product does faster; it shares
// nothing with it but the types of its results.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "audio/audio_hash_generator.h"
#include "audio/audio_spectrum_generator.h"

namespace cv::test {

class PlainSpectrumGenerator {
 public:
  void compute_spectrum(const short* samples, std::size_t count,
                        audio::SpectrumGeneratorCallback& callback, void* user);

 private:
  void build_frame(audio::SpectrumFrame& frame);

  int16_t m_ring[256] = {};
  uint64_t m_head = 0;
  uint64_t m_count = 0;
  audio::SpectrumFrame m_frames[2];
  int m_current = 0;
  uint64_t m_next_index = 0;
};

/// The frame's point, if it has one.
std::optional<audio::HashPoint> plain_hash(const audio::SpectrumFrame& frame);

/// Whether `frame` has the bits of `plain`, but for mean, power, deviation and entropy: the product
/// sums them in another order, and 1e-12 (relative) is allowed.
bool same_frame(const audio::SpectrumFrame& frame, const audio::SpectrumFrame& plain);

/// Copies every frame it is given.
struct FrameCollector : audio::SpectrumGeneratorCallback {
  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    frames.push_back(frame);
  }
  std::vector<audio::SpectrumFrame> frames;
};

/// All frames of a recording given in one piece.
std::vector<audio::SpectrumFrame> plain_frames(std::span<const int16_t> samples);
std::vector<audio::HashPoint> plain_points(std::span<const int16_t> samples);
/// The points of all phases: by frame, then by phase, each (frame, hash) once.
std::vector<audio::HashPoint> plain_fingerprint(std::span<const int16_t> samples, unsigned phases);

}  // namespace cv::test
