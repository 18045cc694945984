#include "utils/utils_bytes.h"

namespace cv::utils::bytes {

/// The value of a hexadecimal digit, or -1.
static int digit_value(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

std::vector<uint8_t> decode(const char* hex, std::size_t length) {
  if (length % 2 != 0) return {};
  std::vector<uint8_t> bytes(length / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = digit_value(hex[2 * i]);
    const int low = digit_value(hex[2 * i + 1]);
    if (high < 0 || low < 0) return {};
    bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return bytes;
}

bool decode_uuid(const char* text, uint8_t* out, tag::direct_update_t) {
  int digits = 0;
  for (int i = 0; digits < 32; ++i) {
    if (text[i] == '-' && (i == 8 || i == 13 || i == 18 || i == 23)) continue;
    const int value = digit_value(text[i]);
    if (value < 0) return false;
    uint8_t& byte = out[digits / 2];
    byte = static_cast<uint8_t>(digits % 2 == 0 ? value << 4 : byte | value);
    ++digits;
  }
  return true;
}

}  // namespace cv::utils::bytes
