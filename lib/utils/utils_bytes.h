// Hexadecimal text to bytes. Any thread, no logging.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cv::tag {

/// Marks a call that writes its output as it goes: after a failure it holds what was read so far.
struct direct_update_t {};
inline constexpr direct_update_t direct_update{};

}  // namespace cv::tag

namespace cv::utils::bytes {

/// `length` hexadecimal digits of either case to `length` / 2 bytes. Empty when `length` is odd or
/// zero or a character is no digit.
std::vector<uint8_t> decode(const char* hex, std::size_t length);

/// 32 digits, with or without the dashes of the 8-4-4-4-12 form, to the 16 bytes at `out`; what
/// follows them is not looked at. True when all 16 bytes were filled.
bool decode_uuid(const char* text, uint8_t* out, tag::direct_update_t);

}  // namespace cv::utils::bytes
