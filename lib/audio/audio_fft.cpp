#include "audio/audio_fft.h"

#include <array>
#include <cmath>
#include <cstdint>
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

void fft(complex* data) {
  reorder(data);
  // Factor j of a stage lies in slot j * 128 / half: where the stage before left factor j / 2. Only
  // the odd ones are new, each one product behind its neighbour.
  std::array<complex, fft_size / 2> factors;
  factors[0] = {1, 0};
  std::size_t stage = 0;
  for (std::size_t half = 1; half < fft_size; half *= 2, ++stage) {
    const std::size_t stride = fft_size / 2 / half;
    for (std::size_t j = 0; j < half; ++j) {
      complex& factor = factors[j * stride];
      if (j % 2 == 1) factor = product(factors[(j - 1) * stride], W2n[stage]);
      butterflies(data, j, half, factor);
    }
  }
}

}  // namespace cv::math
