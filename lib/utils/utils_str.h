// Cutting, cleaning and reading text. Free functions without state: any thread, no logging.
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "utils/utils_generic_result.h"

namespace cv::utils::str {

/// What the trimming functions remove by default. Vertical tab and form feed are not in it.
inline constexpr const char* white_space = " \t\n\r";

/// Appends the pieces of `text` between delimiters to `out`; empty ones only with `keep_empty`.
/// The text behind the last delimiter is a piece only when it is not empty: "a,b," is "a", "b"
/// either way.
void split(const std::string& text, char delimiter, std::vector<std::string>& out, bool keep_empty);

/// The same with a delimiter of one or more characters, except that with `keep_empty` the text
/// behind the last delimiter always counts: "a,b," is "a", "b", "".
void split(const std::string& text, const char* delimiter, std::vector<std::string>& out,
           bool keep_empty);
void split(const std::string& text, const std::string& delimiter, std::vector<std::string>& out,
           bool keep_empty);

/// Any character of `delimiters` ends a piece. With `keep_empty` the text behind the last one
/// always counts, but an empty `text` has no pieces.
void split_any(const std::string& text, const std::string& delimiters,
               std::vector<std::string>& out, bool keep_empty);

/// Copies without the leading (trailing) characters of the set.
std::string trim_left(const std::string& text, const std::string& characters = white_space);
std::string trim_right(const std::string& text, const std::string& characters = white_space);
/// Both ends.
std::string trim(const std::string& text);

/// Replaces every occurrence of `from` (not empty), left to right, in place; what `to` brings in is
/// not searched again. Returns `text`.
std::string& replace(std::string& text, const std::string& from, const std::string& to);
/// A changed copy.
std::string replace(const std::string& text, const std::string& from, const std::string& to);

/// 16 bytes as 36 characters, "00112233-4455-6677-8899-aabbccddeeff". Takes nothing from the heap, for
/// where logging must not fail.
class UuidText {
 public:
  explicit UuidText(const uint8_t* bytes);
  std::string_view view() const { return {m_text.data(), m_text.size()}; }

 private:
  std::array<char, 36> m_text;
};
std::ostream& operator<<(std::ostream& out, const UuidText& uuid);

/// The same text as a string.
std::string print_uuid(const uint8_t* bytes);
/// The same text into a stream, whose formatting state is neither used nor changed.
std::ostream& print_uuid(std::ostream& out, const uint8_t* bytes);

enum class try_parse_status {
  ok,            // the whole text was a number in range; written
  null_input,    // no text
  bad_format,    // no digits (nothing written), or something behind the number (number written)
  out_of_range,  // not representable; nothing written
  system_error   // the conversion failed otherwise; nothing written
};
using try_parse_result = GenericResult<try_parse_status, try_parse_status::ok>;

/// Reads a number the way strtoul and strtod do: leading white space and a sign are accepted, and a
/// minus sign wraps an unsigned value, so that "-1" is out of range for all but unsigned long.
/// For unsigned short, unsigned int, unsigned long and double.
template <typename T, int Base = 10>
try_parse_result try_parse_value(const char* text, T& out);

template <>
try_parse_result try_parse_value<unsigned short, 10>(const char* text, unsigned short& out);
template <>
try_parse_result try_parse_value<unsigned int, 10>(const char* text, unsigned int& out);
template <>
try_parse_result try_parse_value<unsigned long, 10>(const char* text, unsigned long& out);
template <>
try_parse_result try_parse_value<double, 10>(const char* text, double& out);

}  // namespace cv::utils::str
