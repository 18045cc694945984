// CRC-64/XZ: polynomial 0x42F0E1EBA9EA3693 of ECMA-182, reflected, start value and final inversion
// all ones. Its check value over "123456789" is 0x995DC9BBDF1939FA.
//
// It names things here (calls, contents of files); it protects nothing against an attacker.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cv::tools {

namespace crc64_detail {

inline constexpr std::array<uint64_t, 256> table = [] {
  constexpr uint64_t reflected_polynomial = 0xC96C5795D7870F42u;
  std::array<uint64_t, 256> entries{};
  for (uint64_t byte = 0; byte < 256; ++byte) {
    uint64_t value = byte;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value & 1) ? (value >> 1) ^ reflected_polynomial : value >> 1;
    }
    entries[byte] = value;
  }
  return entries;
}();

}  // namespace crc64_detail

constexpr uint64_t crc64(std::string_view bytes) {
  uint64_t value = ~uint64_t{0};
  for (const char byte : bytes) {
    value = crc64_detail::table[(value ^ static_cast<unsigned char>(byte)) & 0xFF] ^ (value >> 8);
  }
  return ~value;
}

}  // namespace cv::tools
