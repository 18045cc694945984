// The text helpers against plain loops.
#include <charconv>
#include <cstring>
#include <limits>
#include <sstream>

#include "fuzzing.h"
#include "utils/utils_bytes.h"
#include "utils/utils_str.h"

namespace cv::fuzz {
namespace {

namespace str = utils::str;
using str::try_parse_status;
using Pieces = std::vector<std::string>;

bool contains(const std::string& set, char c) { return set.find(c) != set.npos; }

/// The text between delimiters: every piece, the last one too.
Pieces all_pieces(const std::string& text, const std::string& delimiter) {
  Pieces pieces(1);
  for (std::size_t i = 0; i < text.size();) {
    if (text.compare(i, delimiter.size(), delimiter) == 0) {
      pieces.emplace_back();
      i += delimiter.size();
    } else {
      pieces.back() += text[i++];
    }
  }
  return pieces;
}

Pieces without_empty(Pieces pieces) {
  std::erase(pieces, "");
  return pieces;
}

void check_split(const std::string& text, const std::string& delimiter) {
  const Pieces all = all_pieces(text, delimiter);
  for (const bool keep_empty : {false, true}) {
    Pieces pieces;
    str::split(text, delimiter, pieces, keep_empty);
    FUZZ_CHECK(pieces == (keep_empty ? all : without_empty(all)));
    Pieces again;
    if (!contains(delimiter, '\0')) str::split(text, delimiter.c_str(), again, keep_empty);
    FUZZ_CHECK(again.empty() || again == pieces);
  }
}

void check_split(const std::string& text, char delimiter) {
  Pieces all = all_pieces(text, std::string(1, delimiter));
  if (all.back().empty()) all.pop_back();
  for (const bool keep_empty : {false, true}) {
    Pieces pieces;
    str::split(text, delimiter, pieces, keep_empty);
    FUZZ_CHECK(pieces == (keep_empty ? all : without_empty(all)));
  }
}

void check_split_any(const std::string& text, const std::string& delimiters) {
  Pieces all;
  if (!text.empty()) all.emplace_back();
  for (const char c : text) {
    if (contains(delimiters, c)) {
      all.emplace_back();
    } else {
      all.back() += c;
    }
  }
  for (const bool keep_empty : {false, true}) {
    Pieces pieces;
    str::split_any(text, delimiters, pieces, keep_empty);
    FUZZ_CHECK(pieces == (keep_empty ? all : without_empty(all)));
  }
}

void check_trim(const std::string& text, const std::string& characters) {
  std::size_t begin = 0;
  while (begin < text.size() && contains(characters, text[begin])) ++begin;
  FUZZ_CHECK(str::trim_left(text, characters) == text.substr(begin));
  std::size_t end = text.size();
  while (end > 0 && contains(characters, text[end - 1])) --end;
  FUZZ_CHECK(str::trim_right(text, characters) == text.substr(0, end));
  FUZZ_CHECK(str::trim(text) == str::trim_right(str::trim_left(text, " \t\n\r"), " \t\n\r"));
}

void check_replace(const std::string& text, const std::string& from, const std::string& to) {
  std::string expected;
  for (const std::string& piece : all_pieces(text, from)) expected += to + piece;
  expected.erase(0, to.size());
  FUZZ_CHECK(str::replace(text, from, to) == expected);
}

int hex_value(char c) {
  const char* digits = "0123456789abcdefABCDEF";
  const char* found = c == '\0' ? nullptr : std::strchr(digits, c);
  if (found == nullptr) return -1;
  const auto at = static_cast<int>(found - digits);
  return at < 16 ? at : at - 6;
}

void check_hex(const std::string& text) {
  std::vector<uint8_t> expected;
  bool valid = text.size() % 2 == 0;
  for (std::size_t i = 0; valid && i < text.size(); i += 2) {
    valid = hex_value(text[i]) >= 0 && hex_value(text[i + 1]) >= 0;
    expected.push_back(static_cast<uint8_t>(hex_value(text[i]) * 16 + hex_value(text[i + 1])));
  }
  if (!valid) expected.clear();
  FUZZ_CHECK(utils::bytes::decode(text.data(), text.size()) == expected);
}

void check_uuid(const std::string& text) {
  std::string digits;
  for (std::size_t i = 0; i < text.size() && digits.size() < 32; ++i) {
    const bool dash = text[i] == '-' && (i == 8 || i == 13 || i == 18 || i == 23);
    if (dash) continue;
    if (hex_value(text[i]) < 0) break;
    digits += text[i];
  }
  uint8_t bytes[16] = {};
  const bool read = utils::bytes::decode_uuid(text.c_str(), bytes, tag::direct_update);
  FUZZ_CHECK(read == (digits.size() == 32));
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    FUZZ_CHECK(bytes[i / 2] == hex_value(digits[i]) * 16 + hex_value(digits[i + 1]));
  }
  if (!read) return;
  uint8_t again[16];
  FUZZ_CHECK(utils::bytes::decode_uuid(str::print_uuid(bytes).c_str(), again, tag::direct_update));
  FUZZ_CHECK(std::memcmp(again, bytes, sizeof bytes) == 0);
}

template <typename T>
void check_number(const std::string& text) {
  std::size_t at = 0;
  while (at < text.size() && contains(" \t\n\v\f\r", text[at])) ++at;
  const bool minus = at < text.size() && text[at] == '-';
  if (at < text.size() && contains("+-", text[at])) ++at;
  const std::size_t first = at;
  unsigned __int128 value = 0;
  bool beyond = false;
  for (; at < text.size() && contains("0123456789", text[at]); ++at) {
    value = value * 10 + static_cast<unsigned>(text[at] - '0');
    beyond = beyond || value > std::numeric_limits<uint64_t>::max();
    if (beyond) value = 0;
  }
  auto expected = try_parse_status::ok;
  const uint64_t wrapped = static_cast<uint64_t>(minus ? -value : value);
  if (beyond || wrapped > std::numeric_limits<T>::max()) {
    expected = try_parse_status::out_of_range;
  } else if (at == first || at != std::strlen(text.c_str())) {
    expected = try_parse_status::bad_format;
  }
  T out = 77;
  FUZZ_CHECK((str::try_parse_value<T, 10>(text.c_str(), out).status()) == expected);
  const bool written = expected != try_parse_status::out_of_range && at != first;
  FUZZ_CHECK(out == (written ? wrapped : 77));
}

/// Only what std::from_chars reads too, which knows no blanks, signs of plus and hexadecimal digits.
void check_double(const std::string& text) {
  double out = 0.5;
  const auto status = str::try_parse_value<double, 10>(text.c_str(), out).status();
  double expected = 0.5;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), expected);
  if (error != std::errc() || contains(text, 'x') || contains(text, 'X')) return;
  if (status == try_parse_status::out_of_range) {
    // The C library also refuses what is too small to be exact.
    FUZZ_CHECK(std::abs(expected) < std::numeric_limits<double>::min());
    return;
  }
  const bool whole = *end == '\0';
  // A not-a-number may carry a text that only one of them reads.
  if (expected != expected) return;
  FUZZ_CHECK(status == (whole ? try_parse_status::ok : try_parse_status::bad_format));
  FUZZ_CHECK(std::memcmp(&out, &expected, sizeof out) == 0);
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv::fuzz;
  FuzzedDataProvider input(data, size);
  const std::string few = input.ConsumeBytesAsString(input.ConsumeIntegralInRange<uint8_t>(0, 4));
  const std::string to = input.ConsumeBytesAsString(input.ConsumeIntegralInRange<uint8_t>(0, 4));
  const std::string text = input.ConsumeRemainingBytesAsString();
  if (!few.empty()) {
    check_split(text, few);
    check_split(text, few[0]);
    check_replace(text, few, to);
  }
  check_split_any(text, few);
  check_trim(text, few);
  check_hex(text);
  check_uuid(text);
  check_number<unsigned short>(text);
  check_number<unsigned int>(text);
  check_number<unsigned long>(text);
  check_double(text);
  return 0;
}
