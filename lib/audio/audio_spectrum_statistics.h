// The statistics of a frame as they are defined: sums in the order of the bins, the C library's
// logarithm. The kernels sum in another order, which rounds differently (1e-12, relative, at most), so
// who compares a statistic with a threshold takes the exact one when the two are that close. A decision
// then never depends on the machine.
#pragma once

#include <cmath>

#include "audio/audio_spectrum_generator.h"

namespace cv::audio {

/// Whether the kernels' rounding could put `value` on the other side of `threshold`.
inline bool in_doubt(double value, double threshold) {
  return std::fabs(value - threshold) < 1e-9 * std::fabs(threshold);
}

/// Sets mean, power, deviation and entropy from the magnitudes. Some microseconds.
void take_exact_statistics(SpectrumFrame& frame);

/// `frame` with exact statistics; or as it is, when its statistics are not those of its magnitudes.
SpectrumFrame with_exact_statistics(const SpectrumFrame& frame);

}  // namespace cv::audio
