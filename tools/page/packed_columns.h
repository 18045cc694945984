// Columns of numbers for a page, small: bytes of one significance side by side, deflated, in base64.
//
// Neighbouring numbers differ little, so their high bytes are runs of the same; that is what deflate
// finds. page.js has the way back. One thread.
#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace cv::tools {

class PackedColumns {
 public:
  /// Where a column is in the unpacked bytes: what the page needs to find it.
  struct Place {
    std::size_t at = 0;
    std::size_t count = 0;
    const char* type = "";  // "i8", "i32", "f32"
  };

  Place add(std::span<const int8_t> values);
  Place add(std::span<const int32_t> values);
  /// Five digits are kept: nobody reads more, and the rest would be half of the page.
  Place add(std::span<const float> values);

  std::string text() const;

 private:
  void append_planes(std::span<const uint32_t> words);

  std::vector<uint8_t> m_bytes;
};

}  // namespace cv::tools
