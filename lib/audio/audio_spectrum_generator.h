// Audio samples to spectrum frames: one frame per 128 samples, each over the last 256.
//
// Invariants:
// 1. Frame n covers samples 128 n to 128 n + 255 of the stream, however the samples were split into
//    calls.
// 2. A frame handed to the callback stays intact until the frame after the next one is built.
// 3. No allocation; the generator is a plain value that owns no heap memory.
// Threads: one at a time for one generator.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace cv::audio {

inline constexpr std::size_t frame_window_samples = 256;
inline constexpr std::size_t frame_hop_samples = 128;
inline constexpr std::size_t frame_magnitudes = 127;
/// Deviation from which on a frame has a hash point.
inline constexpr double least_hash_deviation = 1.0;

struct SpectrumFrame {
  /// Number of the frame within its stream, from 0.
  uint64_t index = 0;
  /// Element j is the magnitude of transform bin j + 1, scaled by 1/128.
  std::array<double, frame_magnitudes> magnitudes{};
  double mean = 0;
  /// Mean of the squared magnitudes.
  double power = 0;
  /// Shannon entropy of the magnitudes taken as a distribution, divided by its maximum: 0 to 1, and
  /// 1 for silence. (C. E. Shannon, Bell Syst. Tech. J. 27 (1948) 379-423.)
  double entropy = 1;
  /// Standard deviation of the magnitudes, population form.
  double deviation = 0;
  /// Mean absolute value of the samples before windowing: 0 to 32768.
  double amplitude = 0;
};

class SpectrumGeneratorCallback {
 public:
  virtual ~SpectrumGeneratorCallback() = default;
  virtual void on_spectrum_data(const SpectrumFrame& frame, void* user) = 0;
};

class SpectrumGenerator {
 public:
  /// Appends `count` samples and calls `callback` once for each frame they complete, in order,
  /// before it returns. `user` is passed through. Samples short of a frame wait for the next call.
  void compute_spectrum(const short* samples, std::size_t count,
                        SpectrumGeneratorCallback& callback, void* user);

  /// Asks memory for the place of the samples to come; reads the generator's first line only.
  void prefetch_samples() const;

 private:
  void append(const short* samples, std::size_t count);
  void build_frame(SpectrumFrame& frame);

  // First, in one line of the cache: where the samples go.
  uint64_t m_head = 0;
  uint64_t m_count = 0;
  uint64_t m_next_index = 0;
  int32_t m_current = 0;
  // The window moves by half the ring, so the oldest sample is always at 0 or at 128 and each half
  // of the window is one contiguous run.
  std::array<int16_t, frame_window_samples> m_ring{};
  std::array<SpectrumFrame, 2> m_frames{};
};

}  // namespace cv::audio
