// What the fuzz targets share. Each target is one file with one function, and states what holds for any
// input; libFuzzer makes the inputs, scripts/fuzz runs them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <iterator>
#include <string>
#include <vector>

/// Ends the process when the condition is false; libFuzzer then keeps the input. Never compiled out.
#define FUZZ_CHECK(condition)                                                             \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (false)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace cv::fuzz {

using Bytes = std::vector<unsigned char>;

template <typename T, std::size_t N>
T one_of(FuzzedDataProvider& input, const T (&values)[N]) {
  return values[input.ConsumeIntegralInRange<uint8_t>(0, N - 1)];
}

inline Bytes take_bytes(FuzzedDataProvider& input, std::size_t most) {
  return input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(0, most));
}

/// Samples of 16 bits, as many as `most` and the input allow.
inline std::vector<int16_t> take_samples(FuzzedDataProvider& input, std::size_t most) {
  const Bytes bytes = take_bytes(input, 2 * most);
  std::vector<int16_t> samples(bytes.size() / 2);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }
  return samples;
}

/// The input as text, and the parts of it between line feeds.
inline std::vector<std::string> lines_of(const uint8_t* data, std::size_t size) {
  std::vector<std::string> lines(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += static_cast<char>(data[i]);
    }
  }
  return lines;
}

}  // namespace cv::fuzz
