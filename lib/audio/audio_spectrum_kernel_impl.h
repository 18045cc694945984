// Samples to magnitudes and statistics, for the instruction set of the source that includes it.
//
// The transform is that of audio_fft.h with the very same products, sums and differences for every
// value. What differs is where values lie: stage by stage the transform joins the spectra of
// subsequences, Y[q][r] being bin q of the subsequence that takes every R-th sample from sample r on.
// Kept as rows of r, all butterflies of a row share their factor and the lanes of a vector run over r:
// no bit reversal, no shuffles. Real and imaginary parts lie in arrays of their own. Each pass does
// two stages, in registers between them. Only when a row is down to four values, before the last two
// stages, the lanes change over to q.
//
// Left out: products with 1 and -i, and whatever an input without imaginary parts makes zero (signs of
// zeros aside, the results are the same bits); and bins 128 to 255. They mirror the lower bins in
// theory only: rounding does not keep the symmetry, so it is of no use inside the transform either.
#pragma once

#include "audio/audio_fft.h"
#include "audio/audio_spectrum_kernel.h"
#include "audio/audio_spectrum_vector.h"
#include "audio/audio_window.h"

#ifdef __FMA__
#error "a fused multiply-add rounds once where the fingerprints' arithmetic rounds twice"
#endif

namespace cv::audio {
namespace {

using math::fft_factors;

inline constexpr size_t bins = 128;  // bin 0 is formed but not kept
inline constexpr double epsilon = 2.220446049250313e-16;

struct Complex {
  Vec re;
  Vec im;
};

inline Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
inline Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
inline Complex operator*(Complex w, Complex x) {
  return {w.re * x.re - w.im * x.im, w.re * x.im + w.im * x.re};
}
/// (-i w) x: factor j + h/2 of a stage is -i times factor j, exactly.
inline Complex quarter_on(Complex w, Complex x) {
  return {w.im * x.re + w.re * x.im, w.im * x.im - w.re * x.re};
}

/// Factor j of the stage with half-size `half`, in all lanes.
inline Complex factor(size_t half, size_t j) {
  return {broadcast(fft_factors.re[half + j]), broadcast(fft_factors.im[half + j])};
}

/// Factors j and on, one a lane.
inline Complex factors(size_t half, size_t j) {
  return {load(fft_factors.re + half + j), load(fft_factors.im + half + j)};
}

/// Complex values in two arrays.
template <size_t Count>
struct Split {
  alignas(64) double re[Count];
  alignas(64) double im[Count];

  Complex at(size_t i) const { return {load(re + i), load(im + i)}; }
  void put(size_t i, Complex x) {
    store(re + i, x.re);
    store(im + i, x.im);
  }
};

/// Y[0] to Y[3] of 64 subsequences of four samples. Y[0] and Y[2] are real, Y[3] is the conjugate of
/// Y[1] = real1 - i imag3.
struct Quarters {
  alignas(64) double real0[64];
  alignas(64) double real2[64];
  alignas(64) double real1[64];
  alignas(64) double imag3[64];
};

/// Stages 1 and 2, which have no products.
inline void window_and_stages_1_2(const int16_t* older, const int16_t* newer, Quarters& out) {
  for (size_t r = 0; r < 64; r += lanes) {
    const Vec x0 = convert(older + r) * load(window_func + r);
    const Vec x1 = convert(older + 64 + r) * load(window_func + 64 + r);
    const Vec x2 = convert(newer + r) * load(window_func + 128 + r);
    const Vec x3 = convert(newer + 64 + r) * load(window_func + 192 + r);
    const Vec even = x0 + x2;
    const Vec odd = x1 + x3;
    store(out.real0 + r, even + odd);
    store(out.real2 + r, even - odd);
    store(out.real1 + r, x0 - x2);
    store(out.imag3 + r, x1 - x3);
  }
}

/// Stages 3 and 4 join the spectra of r, r + 16, r + 32 and r + 48 (lanes over r). Rows of 16 come out.
struct Stages34 {
  const Quarters& in;
  Split<256>& out;
  size_t r;

  void put(size_t q, Complex x) const { out.put(16 * q + r, x); }

  /// From Y[0], all real.
  void from_0() const {
    const Vec x0 = load(in.real0 + r), x1 = load(in.real0 + r + 16);
    const Vec x2 = load(in.real0 + r + 32), x3 = load(in.real0 + r + 48);
    const Vec zero = broadcast(0);
    const Vec even = x0 + x2, odd = x1 + x3, re = x0 - x2, im = x1 - x3;
    put(0, {even + odd, zero});
    put(8, {even - odd, zero});
    put(4, {re, -im});
    put(12, {re, im});
  }

  /// From Y[2], all real; stage 3 has the factor -i only.
  void from_2() const {
    const Vec x0 = load(in.real2 + r), x1 = load(in.real2 + r + 16);
    const Vec x2 = load(in.real2 + r + 32), x3 = load(in.real2 + r + 48);
    const Complex w = factor(8, 2);
    const Complex a = w * Complex{x1, -x3};
    const Complex b = quarter_on(w, {x1, x3});
    put(2, Complex{x0, -x2} + a);
    put(10, Complex{x0, -x2} - a);
    put(6, Complex{x0, x2} + b);
    put(14, Complex{x0, x2} - b);
  }

  /// Stage 3 of Y[1] and Y[3] at `at` and `at` + 32. The one is the conjugate of the other and the
  /// factors differ by -i, so the four products are the same.
  struct Eighths {
    Complex y1, y5, y3, y7;
  };
  Eighths stage_3(size_t at) const {
    const Vec re = load(in.real1 + at), im = load(in.imag3 + at);
    const Vec c = load(in.real1 + at + 32), d = load(in.imag3 + at + 32);
    const Complex w = factor(4, 1);
    const Vec ac = w.re * c, bd = w.im * d, bc = w.im * c, ad = w.re * d;
    const Complex y1 = {re, -im}, y3 = {re, im};
    const Complex t1 = {ac + bd, bc - ad}, t3 = {bc + ad, bd - ac};
    return {y1 + t1, y1 - t1, y3 + t3, y3 - t3};
  }

  void from_1_and_3() const {
    const Eighths a = stage_3(r);
    const Eighths b = stage_3(r + 16);
    const Complex w1 = factor(8, 1), w3 = factor(8, 3);
    const Complex t1 = w1 * b.y1, t5 = quarter_on(w1, b.y5);
    put(1, a.y1 + t1);
    put(9, a.y1 - t1);
    put(5, a.y5 + t5);
    put(13, a.y5 - t5);
    const Complex t3 = w3 * b.y3, t7 = quarter_on(w3, b.y7);
    put(3, a.y3 + t3);
    put(11, a.y3 - t3);
    put(7, a.y7 + t7);
    put(15, a.y7 - t7);
  }
};

inline void stages_3_4(const Quarters& in, Split<256>& out) {
  for (size_t r = 0; r < 16; r += lanes) {
    const Stages34 step{in, out, r};
    step.from_0();
    step.from_2();
    step.from_1_and_3();
  }
}

/// Rows of 16 to rows of 4: q gives q, q + 16, q + 32 and q + 48.
inline void stages_5_6(const Split<256>& in, Split<256>& out) {
  for (size_t q = 0; q < 16; ++q) {
    const Complex w5 = factor(16, q);
    const Complex w6 = factor(32, q);
    for (size_t r = 0; r < 4; r += lanes) {
      const size_t from = 16 * q + r;
      const Complex x0 = in.at(from), x1 = in.at(from + 4);
      const Complex t0 = w5 * in.at(from + 8), t1 = w5 * in.at(from + 12);
      const Complex sum = x0 + t0, difference = x0 - t0;
      const Complex u0 = w6 * (x1 + t1), u1 = quarter_on(w6, x1 - t1);
      const size_t to = 4 * q + r;
      out.put(to, sum + u0);
      out.put(to + 128, sum - u0);
      out.put(to + 64, difference + u1);
      out.put(to + 192, difference - u1);
    }
  }
}

/// Four partial sums, whatever the number of lanes: every kernel rounds alike.
struct Sum {
  Vec parts[4 / lanes] = {};

  /// `x` belongs to bin k and on.
  void add(size_t k, Vec x) { parts[k % 4 / lanes] += x; }

  double total() const {
    double p[4];
    for (size_t i = 0; i < 4; i += lanes) store_unaligned(p + i, parts[i / lanes]);
    return (p[0] + p[1]) + (p[2] + p[3]);
  }
};

/// The magnitudes and their sums as they come out of the last stage.
struct Magnitudes {
  alignas(64) double values[bins];  // slot 0 holds 0
  Sum sum;
  Sum square_sum;

  void put(size_t k, Complex x) {
    Vec m = square_root(x.re * x.re + x.im * x.im) * (1.0 / 128);  // exact, as a division would be
    if (k == 0) m = without_first(m);
    store(values + k, m);
    sum.add(k, m);
    square_sum.add(k, m * m);
  }
};

/// Rows of 4 to magnitudes: rows q and on give bins q and 64 + q, lanes over q.
inline void stages_7_8(const Split<256>& in, Magnitudes& out) {
  for (size_t q = 0; q < 64; q += lanes) {
    Vec re[4], im[4];
    load_columns(in.re + 4 * q, re);
    load_columns(in.im + 4 * q, im);
    const Complex w7 = factors(64, q), w8 = factors(128, q);
    const Complex x0 = {re[0], im[0]}, x1 = {re[1], im[1]};
    const Complex t0 = w7 * Complex{re[2], im[2]}, t1 = w7 * Complex{re[3], im[3]};
    out.put(q, (x0 + t0) + w8 * (x1 + t1));
    out.put(q + 64, (x0 - t0) + quarter_on(w8, x1 - t1));
  }
}

/// Mean, power, deviation and entropy of the magnitudes.
inline void measure(const Magnitudes& m, FrameStatistics& statistics) {
  constexpr double count = bins - 1;
  constexpr double log2_of_127 = 6.9886846867721655;
  const double total = m.sum.total();
  const double mean = total / count;
  statistics.mean = mean;
  if (!(mean > epsilon)) {
    statistics.power = 0;
    statistics.deviation = 0;
    statistics.entropy = 1;
    return;
  }
  const double scale = 1 / total;
  Sum spread, terms;
  constexpr size_t batch = 4;  // logarithms at a time: one alone is a long chain of operations
  for (size_t k = 0; k < bins; k += batch * lanes) {
    Vec p[batch], logs[batch];
    for (size_t i = 0; i < batch; ++i) {
      const size_t bin = k + i * lanes;
      const Vec values = load(m.values + bin);
      const Vec difference = bin == 0 ? without_first(values - mean) : values - mean;
      spread.add(bin, difference * difference);
      p[i] = values * scale;
      logs[i] = p[i] + epsilon;
    }
    take_log_2(logs);
    for (size_t i = 0; i < batch; ++i) terms.add(k + i * lanes, p[i] * logs[i]);
  }
  statistics.power = m.square_sum.total() / count;
  statistics.deviation = __builtin_sqrt(spread.total() / count);
  statistics.entropy = -terms.total() / log2_of_127;
}

inline void analyse(const int16_t* older, const int16_t* newer, double* magnitudes,
                    FrameStatistics* statistics) {
  Quarters quarters;
  Split<256> rows_of_16;
  Split<256> rows_of_4;
  Magnitudes m;
  statistics->amplitude = (absolute_sum<128>(older) + absolute_sum<128>(newer)) / 256.0;
  window_and_stages_1_2(older, newer, quarters);
  stages_3_4(quarters, rows_of_16);
  stages_5_6(rows_of_16, rows_of_4);
  stages_7_8(rows_of_4, m);
  measure(m, *statistics);
  __builtin_memcpy(magnitudes, m.values + 1, (bins - 1) * sizeof *magnitudes);
}

}  // namespace
}  // namespace cv::audio
