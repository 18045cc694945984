// What a frame would cost with a transform library and the fewest vector passes around it: the measure
// of how fast a frame can be. Not a replacement: the library rounds differently, and fingerprints
// would change.
#pragma once

#include <fftw3.h>

#include "audio/audio_spectrum_kernel.h"

namespace cv::bench {

/// FFTW, real input of 256 doubles, patient plan. Needs AVX2.
class FftwFrame {
 public:
  FftwFrame();
  ~FftwFrame();
  FftwFrame(const FftwFrame&) = delete;
  FftwFrame& operator=(const FftwFrame&) = delete;

  /// As SpectrumKernel::analyse, of a window in one piece.
  void analyse(const int16_t* window, double* magnitudes, audio::FrameStatistics* statistics);

 private:
  double* m_in;
  fftw_complex* m_out;
  fftw_plan m_plan;
};

}  // namespace cv::bench
