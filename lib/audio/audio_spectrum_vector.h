// The few vector operations that the spectrum kernels need beyond the compiler's own operators on
// vectors, for the instruction set their source is compiled for: AVX2 or, on any x86-64, SSE2. Internal
// linkage throughout: each kernel keeps its own copy.
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

namespace cv::audio {
namespace {

#if defined(__AVX2__)

inline constexpr size_t lanes = 4;
using Vec = __m256d;
using Bits = uint64_t __attribute__((vector_size(32)));

inline Vec broadcast(double x) { return _mm256_set1_pd(x); }
inline Vec load(const double* from) { return _mm256_load_pd(from); }
inline Vec load_unaligned(const double* from) { return _mm256_loadu_pd(from); }
inline void store(double* to, Vec x) { _mm256_store_pd(to, x); }
inline void store_unaligned(double* to, Vec x) { _mm256_storeu_pd(to, x); }
inline Vec square_root(Vec x) { return _mm256_sqrt_pd(x); }
inline Vec larger(Vec a, Vec b) { return _mm256_max_pd(a, b); }
inline Vec smaller(Vec a, Vec b) { return _mm256_min_pd(a, b); }
inline Vec without_first(Vec x) { return _mm256_blend_pd(x, _mm256_setzero_pd(), 1); }

/// Lane i takes the value of lane i ^ Distance.
template <size_t Distance>
inline Vec exchanged(Vec x) {
  static_assert(Distance == 1 || Distance == 2);
  return Distance == 1 ? _mm256_permute_pd(x, 0b0101) : _mm256_permute2f128_pd(x, x, 1);
}

inline Vec convert(const int16_t* from) {
  const __m128i words = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
  return _mm256_cvtepi32_pd(_mm_cvtepi16_epi32(words));
}

/// Row i is rows[4 i .. 4 i + 3]; lane i of column k is value k of row i.
inline void load_columns(const double* rows, Vec* columns) {
  const Vec low01 = _mm256_unpacklo_pd(load(rows), load(rows + 4));
  const Vec high01 = _mm256_unpackhi_pd(load(rows), load(rows + 4));
  const Vec low23 = _mm256_unpacklo_pd(load(rows + 8), load(rows + 12));
  const Vec high23 = _mm256_unpackhi_pd(load(rows + 8), load(rows + 12));
  columns[0] = _mm256_permute2f128_pd(low01, low23, 0x20);
  columns[1] = _mm256_permute2f128_pd(high01, high23, 0x20);
  columns[2] = _mm256_permute2f128_pd(low01, low23, 0x31);
  columns[3] = _mm256_permute2f128_pd(high01, high23, 0x31);
}

#else

inline constexpr size_t lanes = 2;
using Vec = __m128d;
using Bits = uint64_t __attribute__((vector_size(16)));

inline Vec broadcast(double x) { return _mm_set1_pd(x); }
inline Vec load(const double* from) { return _mm_load_pd(from); }
inline Vec load_unaligned(const double* from) { return _mm_loadu_pd(from); }
inline void store(double* to, Vec x) { _mm_store_pd(to, x); }
inline void store_unaligned(double* to, Vec x) { _mm_storeu_pd(to, x); }
inline Vec square_root(Vec x) { return _mm_sqrt_pd(x); }
inline Vec larger(Vec a, Vec b) { return _mm_max_pd(a, b); }
inline Vec smaller(Vec a, Vec b) { return _mm_min_pd(a, b); }
inline Vec without_first(Vec x) { return _mm_move_sd(x, _mm_setzero_pd()); }

template <size_t Distance>
inline Vec exchanged(Vec x) {
  static_assert(Distance == 1);
  return _mm_shuffle_pd(x, x, 0b01);
}

inline Vec convert(const int16_t* from) {
  int32_t pair;
  __builtin_memcpy(&pair, from, sizeof pair);
  const __m128i words = _mm_cvtsi32_si128(pair);
  return _mm_cvtepi32_pd(_mm_srai_epi32(_mm_unpacklo_epi16(words, words), 16));
}

inline void load_columns(const double* rows, Vec* columns) {
  const Vec a = load(rows), b = load(rows + 4), c = load(rows + 2), d = load(rows + 6);
  columns[0] = _mm_unpacklo_pd(a, b);
  columns[1] = _mm_unpackhi_pd(a, b);
  columns[2] = _mm_unpacklo_pd(c, d);
  columns[3] = _mm_unpackhi_pd(c, d);
}

#endif

inline Bits load_bits(const uint64_t* from) {
  Bits bits;
  __builtin_memcpy(&bits, from, sizeof bits);
  return bits;
}

/// log2 of positive normal values, in place: the exponent, and for the rest m, between sqrt(1/2) and
/// sqrt(2), the odd series of the area hyperbolic tangent in (m - 1) / (m + 1), cut to seven terms with
/// coefficients that spread the error evenly (relative error below 2e-16 before rounding).
/// (Abramowitz and Stegun, Handbook of Mathematical Functions, 4.1.27; E. Remez, C. R. Acad. Sci.
/// Paris 198 (1934) 2063.)
template <size_t Count>
inline void take_log_2(Vec (&x)[Count]) {
  constexpr uint64_t one = 0x3ff0000000000000;
  constexpr uint64_t sqrt_half = 0x3fe6a09e667f3bcd;
  constexpr uint64_t mantissa = 0x000fffffffffffff;
  constexpr uint64_t two_to_52 = 0x4330000000000000;
  constexpr double series[] = {0.24292899792562483982, 0.26144310959011565449,
                               0.32061642585477265148, 0.41219840147292356745,
                               0.57707801725029426955, 0.96179669392432456556,
                               2.8853900817779273119};
  Vec exponent[Count], z[Count], square[Count], sum[Count];
  for (size_t i = 0; i < Count; ++i) {
    const Bits shifted = reinterpret_cast<Bits>(x[i]) + (one - sqrt_half);
    exponent[i] = reinterpret_cast<Vec>((shifted >> 52) | two_to_52) - (0x1p52 + 1023);
    const Vec m = reinterpret_cast<Vec>((shifted & mantissa) + sqrt_half);
    z[i] = (m - 1.0) / (m + 1.0);
    square[i] = z[i] * z[i];
    sum[i] = broadcast(series[0]);
  }
#pragma GCC unroll 6
  for (size_t term = 1; term < 7; ++term) {
    for (size_t i = 0; i < Count; ++i) sum[i] = sum[i] * square[i] + series[term];
  }
  for (size_t i = 0; i < Count; ++i) x[i] = exponent[i] + sum[i] * z[i];
}

/// Sum of the absolute values of `Count` samples; each is at most 32768.
template <size_t Count>
inline uint32_t absolute_sum(const int16_t* samples) {
  __m128i sums = _mm_setzero_si128();
  for (size_t n = 0; n < Count; n += 8) {
    const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples + n));
    const __m128i sign = _mm_or_si128(_mm_srai_epi16(s, 15), _mm_set1_epi16(1));  // 1 or -1
    sums = _mm_add_epi32(sums, _mm_madd_epi16(s, sign));
  }
  sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, 0b01001110));
  sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, 0b10110001));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(sums));
}

}  // namespace
}  // namespace cv::audio
