#include "audio/audio_fft.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <utility>

namespace cv::math {

namespace {

constexpr std::array<uint8_t, fft_size> bit_reversal() {
  std::array<uint8_t, fft_size> table{};
  for (std::size_t i = 0; i < fft_size; ++i) {
    for (std::size_t bit = 0; bit < 8; ++bit) {
      if ((i >> bit & 1) != 0) table[i] = static_cast<uint8_t>(table[i] | 0x80 >> bit);
    }
  }
  return table;
}

constexpr std::array<uint8_t, fft_size> reverse256 = bit_reversal();

/// Entry k is exp(-i pi / 2^k), the base factor of the stage with half-size 2^k.
std::array<complex, 32> base_factors() {
  std::array<complex, 32> table{};
  table[0] = {-1, 0};  // cos and sin of a rounded pi would be off by 1e-16
  table[1] = {0, -1};
  for (std::size_t k = 2; k < table.size(); ++k) {
    const double angle = std::ldexp(std::numbers::pi, -static_cast<int>(k));
    table[k] = {std::cos(angle), -std::sin(angle)};
  }
  return table;
}

const std::array<complex, 32> W2n = base_factors();

complex product(const complex& a, const complex& b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

FftFactors stage_factors() {
  FftFactors table{};
  table.re[1] = 1;
  std::size_t stage = 1;
  for (std::size_t half = 2; half < fft_size; half *= 2, ++stage) {
    for (std::size_t j = 0; j < half; ++j) {
      const std::size_t from = j % 2 == 0 ? (half + j) / 2 : half + j - 1;
      complex factor = {table.re[from], table.im[from]};
      if (j % 2 == 1) factor = product(factor, W2n[stage]);
      table.re[half + j] = factor.re;
      table.im[half + j] = factor.im;
    }
  }
  return table;
}

/// The invariant of the table. Only rounding each product by itself keeps it, so this also finds a
/// build in which the compiler fuses products and sums: its fingerprints would match nobody's.
bool quarter_turns_are_exact(const FftFactors& table) {
  for (std::size_t half = 2; half < fft_size; half *= 2) {
    for (std::size_t at = half; at < half + half / 2; ++at) {
      const std::size_t turned = at + half / 2;
      if (table.re[turned] != table.im[at] || table.im[turned] != -table.re[at]) return false;
    }
  }
  return true;
}

FftFactors checked_factors() {
  const FftFactors table = stage_factors();
  if (!quarter_turns_are_exact(table)) {
    std::fputs("FFT: this build does not round products by themselves\n", stderr);
    std::abort();
  }
  return table;
}

void reorder(complex* data) {
  for (std::size_t i = 1; i < fft_size - 1; ++i) {
    const std::size_t j = reverse256[i];
    if (i < j) std::swap(data[i], data[j]);
  }
}

void butterflies(complex* data, std::size_t first, std::size_t half, const complex& factor) {
  for (std::size_t k = first; k < fft_size; k += 2 * half) {
    const complex t = product(factor, data[k + half]);
    data[k + half] = {data[k].re - t.re, data[k].im - t.im};
    data[k] = {data[k].re + t.re, data[k].im + t.im};
  }
}

}  // namespace

const FftFactors fft_factors = checked_factors();

void fft(complex* data) {
  reorder(data);
  for (std::size_t half = 1; half < fft_size; half *= 2) {
    for (std::size_t j = 0; j < half; ++j) {
      butterflies(data, j, half, {fft_factors.re[half + j], fft_factors.im[half + j]});
    }
  }
}

}  // namespace cv::math
