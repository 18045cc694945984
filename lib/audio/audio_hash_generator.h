// Spectrum frames to fingerprint points: at most one 24-bit hash per frame, naming the four
// strongest jumps between neighbouring bins of the lower half of the spectrum.
#pragma once

#include <cstdint>
#include <vector>

#include "audio/audio_spectrum_generator.h"

namespace cv::audio {

struct HashPoint {
  /// Four positions of 6 bits, 1 to 63, the strongest jump lowest; bits 24 to 31 are 0.
  uint32_t hash;
  /// Low 32 bits of the index of the frame the hash was taken from.
  uint32_t offset;

  bool operator==(const HashPoint&) const = default;
};

class HashGeneratorCallback {
 public:
  virtual ~HashGeneratorCallback() = default;
  virtual void on_hash_data(HashPoint point, void* user) = 0;
};

/// Stateless; any thread.
class HashGenerator {
 public:
  /// Calls `callback` with the frame's point, if it has one: a frame with a deviation below 1.0
  /// (near silence) has none.
  void compute_hash(const SpectrumFrame& frame, HashGeneratorCallback& callback, void* user);
};

/// Appends each point to the std::vector<HashPoint> that the user pointer designates.
class HashExtractor : public HashGeneratorCallback {
 public:
  void on_hash_data(HashPoint point, void* user) override;
};

}  // namespace cv::audio
