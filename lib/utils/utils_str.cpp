#include "utils/utils_str.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <ostream>

namespace cv::utils::str {

void split(const std::string& text, char delimiter, std::vector<std::string>& out,
           bool keep_empty) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find(delimiter, begin), text.size());
    if (end > begin || keep_empty) out.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
}

void split(const std::string& text, const std::string& delimiter, std::vector<std::string>& out,
           bool keep_empty) {
  std::size_t begin = 0;
  std::size_t end = text.find(delimiter);
  while (end != std::string::npos) {
    if (end > begin || keep_empty) out.push_back(text.substr(begin, end - begin));
    begin = end + delimiter.size();
    end = text.find(delimiter, begin);
  }
  if (begin < text.size() || keep_empty) out.push_back(text.substr(begin));
}

void split(const std::string& text, const char* delimiter, std::vector<std::string>& out,
           bool keep_empty) {
  split(text, std::string(delimiter), out, keep_empty);
}

void split_any(const std::string& text, const std::string& delimiters,
               std::vector<std::string>& out, bool keep_empty) {
  if (text.empty()) return;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find_first_of(delimiters, begin), text.size());
    if (end > begin || keep_empty) out.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
}

std::string trim_left(const std::string& text, const std::string& characters) {
  const std::size_t begin = text.find_first_not_of(characters);
  return begin == std::string::npos ? std::string() : text.substr(begin);
}

std::string trim_right(const std::string& text, const std::string& characters) {
  // npos + 1 is 0: a text of nothing else becomes empty.
  return text.substr(0, text.find_last_not_of(characters) + 1);
}

std::string trim(const std::string& text) { return trim_left(trim_right(text)); }

std::string& replace(std::string& text, const std::string& from, const std::string& to) {
  std::size_t position = text.find(from);
  while (position != std::string::npos) {
    text.replace(position, from.size(), to);
    position = text.find(from, position + to.size());
  }
  return text;
}

std::string replace(const std::string& text, const std::string& from, const std::string& to) {
  std::string copy = text;
  return replace(copy, from, to);
}

UuidText::UuidText(const uint8_t* bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  auto next = m_text.begin();
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *next++ = '-';
    *next++ = digits[bytes[i] >> 4];
    *next++ = digits[bytes[i] & 0x0F];
  }
}

std::ostream& operator<<(std::ostream& out, const UuidText& uuid) {
  return out.write(uuid.view().data(), static_cast<std::streamsize>(uuid.view().size()));
}

std::string print_uuid(const uint8_t* bytes) { return std::string(UuidText(bytes).view()); }

std::ostream& print_uuid(std::ostream& out, const uint8_t* bytes) { return out << UuidText(bytes); }

/// What the conversion functions say beside the value: how far they read, and errno.
template <typename Converted, typename T>
static try_parse_result finish(const char* text, const char* end, int error, Converted converted,
                               T& out) {
  if (error == ERANGE) return try_parse_status::out_of_range;
  if (error != 0) return try_parse_status::system_error;
  if (end == text) return try_parse_status::bad_format;
  out = static_cast<T>(converted);
  return *end == '\0' ? try_parse_status::ok : try_parse_status::bad_format;
}

template <typename T>
static try_parse_result parse_unsigned(const char* text, T& out) {
  if (text == nullptr) return try_parse_status::null_input;
  char* end = nullptr;
  errno = 0;
  const unsigned long converted = strtoul(text, &end, 10);
  const int error = errno;
  if (converted > std::numeric_limits<T>::max()) return try_parse_status::out_of_range;
  return finish(text, end, error, converted, out);
}

template <>
try_parse_result try_parse_value<unsigned short, 10>(const char* text, unsigned short& out) {
  return parse_unsigned(text, out);
}

template <>
try_parse_result try_parse_value<unsigned int, 10>(const char* text, unsigned int& out) {
  return parse_unsigned(text, out);
}

template <>
try_parse_result try_parse_value<unsigned long, 10>(const char* text, unsigned long& out) {
  return parse_unsigned(text, out);
}

template <>
try_parse_result try_parse_value<double, 10>(const char* text, double& out) {
  if (text == nullptr) return try_parse_status::null_input;
  char* end = nullptr;
  errno = 0;
  const double converted = strtod(text, &end);
  const int error = errno;
  return finish(text, end, error, converted, out);
}

}  // namespace cv::utils::str
