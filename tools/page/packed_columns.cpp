#include "tools/page/packed_columns.h"

#include <absl/strings/escaping.h>
#include <cmath>
#include <new>
#include <zlib.h>

namespace cv::tools {

PackedColumns::Place PackedColumns::add(std::span<const int8_t> values) {
  const Place place{m_bytes.size(), values.size(), "i8"};
  for (const int8_t value : values) m_bytes.push_back(static_cast<uint8_t>(value));
  return place;
}

PackedColumns::Place PackedColumns::add(std::span<const int32_t> values) {
  const Place place{m_bytes.size(), values.size(), "i32"};
  append_planes(std::vector<uint32_t>(values.begin(), values.end()));
  return place;
}

PackedColumns::Place PackedColumns::add(std::span<const float> values) {
  const Place place{m_bytes.size(), values.size(), "f32"};
  std::vector<uint32_t> words;
  // Half of what is cut off is added: a carry into the exponent is the right one.
  for (const float value : values) {
    const auto bits = std::bit_cast<uint32_t>(value);
    words.push_back(std::isfinite(value) ? (bits + 0x80) & ~0xFFU : bits);
  }
  append_planes(words);
  return place;
}

void PackedColumns::append_planes(std::span<const uint32_t> words) {
  for (int shift = 0; shift < 32; shift += 8) {
    for (const uint32_t word : words) m_bytes.push_back(static_cast<uint8_t>(word >> shift));
  }
}

std::string PackedColumns::text() const {
  uLongf size = compressBound(m_bytes.size());
  std::string packed(size, '\0');
  // The buffer is large enough: only memory can be short.
  if (compress2(reinterpret_cast<Bytef*>(packed.data()), &size, m_bytes.data(), m_bytes.size(),
                6) != Z_OK) {
    throw std::bad_alloc();
  }
  return absl::Base64Escape(absl::string_view(packed.data(), size));
}

}  // namespace cv::tools
