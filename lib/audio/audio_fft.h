// The transform behind every spectrum: 256 points, double precision, radix-2 decimation in time.
//
// The exact order of its arithmetic is part of the fingerprint format: hashes taken on different
// machines and at different times are compared with each other, so a faster variant must give the
// same bits for every input.
#pragma once

#include <cstddef>

namespace cv::math {

struct complex {
  double re;
  double im;
};

inline constexpr std::size_t fft_size = 256;

/// In-place forward transform of `fft_size` values: X[k] = sum x[n] exp(-2 pi i nk / 256),
/// unscaled. Any thread. (Cooley and Tukey, Math. Comp. 19 (1965) 297-301.)
void fft(complex* data);

}  // namespace cv::math
