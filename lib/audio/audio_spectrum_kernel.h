// The inner loop of the node: 256 samples to magnitudes and their statistics, magnitudes to a hash.
//
// Written once (audio_spectrum_kernel_impl.h) and compiled once per instruction set;
// audio_spectrum_dispatch.h says which of them runs.
//
// Invariants:
// 1. Every kernel gives the same bits for the same samples, in every output. Magnitudes and amplitude
//    are the bits of the plain algorithms, step by step: only the order of independent operations
//    differs. The other statistics are within 1e-12 (relative): their sums run in another order, and
//    the logarithm is the kernels' own. audio_spectrum_statistics.h has the exact ones.
// 2. No state, no allocation; any thread.
//
// The kernels' sources include no standard header with templates: the linker keeps one copy of an
// inline function that several sources share, and a copy with instructions this processor lacks would
// be as good to it as any other.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace cv::audio {

/// What a frame holds beside its magnitudes; SpectrumFrame tells what each is.
struct FrameStatistics {
  double mean;
  double power;
  double entropy;
  double deviation;
  double amplitude;
};

struct SpectrumKernel {
  /// No hash has bit 24 set.
  static constexpr uint32_t undecided = 1u << 24;

  const char* name;

  /// `older` and `newer` are the halves of the window, 128 samples each; `magnitudes` takes 127.
  void (*analyse)(const int16_t* older, const int16_t* newer, double* magnitudes,
                  FrameStatistics* statistics);

  /// The hash of the 127 `magnitudes`, finite, or `undecided` when two jumps that matter agree to 46
  /// bits: then take them one by one.
  uint32_t (*hash)(const double* magnitudes);
};

extern const SpectrumKernel baseline_spectrum_kernel;
extern const SpectrumKernel avx2_spectrum_kernel;

}  // namespace cv::audio
