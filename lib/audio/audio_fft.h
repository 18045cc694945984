// The transform behind every spectrum: 256 points, double precision, radix-2 decimation in time.
//
// The exact order of its arithmetic is part of the fingerprint format: hashes taken on different
// machines and at different times are compared with each other, so a faster variant must give the
// same bits for every input.
#pragma once

#include <stddef.h>

namespace cv::math {

struct complex {
  double re;
  double im;
};

inline constexpr size_t fft_size = 256;

/// The factors exp(-i pi j / h) of the eight stages: factor j of the stage with half-size h at h + j.
/// Each even one is a factor of the stage before, each odd one is its neighbour's product with the
/// stage's base factor; a more exact value would be a different value. Filled before main().
///
/// Invariant: factor j + h/2 is exactly -i times factor j.
struct FftFactors {
  alignas(64) double re[fft_size];
  alignas(64) double im[fft_size];
};
extern const FftFactors fft_factors;

/// In-place forward transform of `fft_size` values: X[k] = sum x[n] exp(-2 pi i nk / 256),
/// unscaled. Any thread. (Cooley and Tukey, Math. Comp. 19 (1965) 297-301.)
void fft(complex* data);

}  // namespace cv::math
