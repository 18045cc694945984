#include "net/net_address_list.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <utility>

#include "utils/utils_str.h"

namespace cv::net {

namespace str = utils::str;

/// Digits alone, unlike the C library's readers, which take blanks and signs.
static bool read_prefix_length(const std::string& text, unsigned& out) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, out);
  return error == std::errc() && stop == end && out <= 32;
}

static std::string dotted(uint32_t address) {
  const in_addr network{htonl(address)};
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &network, text, sizeof text);
  return text;
}

bool AddressList::parse(const std::string& text, std::string& error) {
  std::vector<std::string> entries;
  str::split(text, ',', entries, false);
  std::vector<Range> ranges(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!parse_entry(str::trim_left(str::trim_right(entries[i])), ranges[i], error)) return false;
  }
  if (ranges.empty()) {
    error = "no address or network in [" + text + "]";
    return false;
  }
  m_ranges = joined(std::move(ranges));
  return true;
}

bool AddressList::parse_entry(const std::string& entry, Range& out, std::string& error) {
  const auto slash = entry.find('/');
  const bool is_network = slash != std::string::npos;
  in_addr address{};
  unsigned prefix_length = 32;
  if (inet_pton(AF_INET, entry.substr(0, slash).c_str(), &address) != 1 ||
      (is_network && !read_prefix_length(entry.substr(slash + 1), prefix_length))) {
    error = "[" + entry + "] is no IPv4 address or network";
    return false;
  }
  // In 64 bits: a shift by 32 is one of the cases.
  const auto host_bits = static_cast<uint32_t>((uint64_t{1} << (32 - prefix_length)) - 1);
  const uint32_t first = ntohl(address.s_addr);
  if ((first & host_bits) != 0) {
    error = "[" + entry + "] has bits behind its network, which is [" + dotted(first & ~host_bits) +
            "/" + std::to_string(prefix_length) + "]";
    return false;
  }
  out = {first, first | host_bits};
  return true;
}

std::vector<AddressList::Range> AddressList::joined(std::vector<Range> ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.first < b.first; });
  std::vector<Range> out;
  for (const Range& range : ranges) {
    if (!out.empty() && range.first <= uint64_t{out.back().last} + 1) {
      out.back().last = std::max(out.back().last, range.last);
    } else {
      out.push_back(range);
    }
  }
  return out;
}

bool AddressList::contains(uint32_t address) const {
  const uint32_t wanted = ntohl(address);
  const auto behind =
      std::upper_bound(m_ranges.begin(), m_ranges.end(), wanted,
                       [](uint32_t value, const Range& range) { return value < range.first; });
  return behind != m_ranges.begin() && wanted <= std::prev(behind)->last;
}

}  // namespace cv::net
