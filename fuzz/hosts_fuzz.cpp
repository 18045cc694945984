// Addresses, lists of hosts and lists of networks against a plain reading of the same text. Texts with a NUL are left out:
// the values come from lines of text, and the C library's conversions end there.
#include <arpa/inet.h>
#include <cstring>
#include <optional>

#include "fuzzing.h"
#include "net/net_address_list.h"
#include "net/net_hosts.h"

namespace cv::fuzz {
namespace {

const std::string digits = "0123456789";
const std::string blanks = " \t\n\r";
const std::string all_blanks = " \t\n\r\v\f";

bool contains(const std::string& set, char c) { return set.find(c) != set.npos; }

std::string trimmed(std::string text, const std::string& set) {
  while (!text.empty() && contains(set, text.back())) text.pop_back();
  while (!text.empty() && contains(set, text.front())) text.erase(text.begin());
  return text;
}

std::vector<std::string> pieces_of(const std::string& text, char delimiter) {
  std::vector<std::string> pieces(1);
  for (const char c : text) {
    if (c == delimiter) {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  return pieces;
}

/// Four numbers of up to three digits without leading zeros, in network byte order.
std::optional<uint32_t> dotted(const std::string& text) {
  const auto pieces = pieces_of(text, '.');
  if (pieces.size() != 4) return std::nullopt;
  uint32_t address = 0;
  for (const std::string& piece : pieces) {
    if (piece.empty() || piece.size() > 3 || (piece[0] == '0' && piece.size() > 1)) {
      return std::nullopt;
    }
    for (const char c : piece) {
      if (!contains(digits, c)) return std::nullopt;
    }
    if (std::stoul(piece) > 255) return std::nullopt;
    address = address << 8 | static_cast<uint32_t>(std::stoul(piece));
  }
  return htonl(address);
}

/// A number at the beginning of the text; `rest` is what follows. Empty when there is none.
std::optional<std::string> leading_digits(std::string text, bool& minus, std::string& rest) {
  while (!text.empty() && contains(all_blanks, text[0])) text.erase(0, 1);
  minus = !text.empty() && text[0] == '-';
  if (!text.empty() && contains("+-", text[0])) text.erase(0, 1);
  const std::size_t count = std::min(text.find_first_not_of(digits), text.size());
  rest = text.substr(count);
  if (count == 0) return std::nullopt;
  const std::size_t zeros = std::min(text.find_first_not_of('0'), count - 1);
  return text.substr(zeros, count - zeros);
}

/// The whole text is a port.
std::optional<uint16_t> strict_port(const std::string& text) {
  bool minus;
  std::string rest;
  const auto number = leading_digits(text, minus, rest);
  if (!number || !rest.empty()) return std::nullopt;
  // "-18446744073709551615" is 1 to strtoul.
  if (minus && number->size() == 20) {
    const unsigned __int128 wrapped = static_cast<unsigned __int128>(1) << 64;
    unsigned __int128 value = 0;
    for (const char c : *number) value = value * 10 + static_cast<unsigned>(c - '0');
    if (value >= wrapped || wrapped - value > 65535) return std::nullopt;
    return static_cast<uint16_t>(wrapped - value);
  }
  if (number->size() > 5 || std::stoul(*number) > 65535) return std::nullopt;
  if (minus && *number != "0") return std::nullopt;
  return static_cast<uint16_t>(std::stoul(*number));
}

/// What the text begins with, or 0. Never has a '-' in front: that divides ranges.
uint16_t lenient_port(const std::string& text) {
  bool minus;
  std::string rest;
  const auto number = leading_digits(trimmed(text, blanks), minus, rest);
  if (!number || number->size() > 5 || std::stoul(*number) > 65535) return 0;
  return static_cast<uint16_t>(std::stoul(*number));
}

struct Record {
  std::string host;
  uint16_t port;
  uint32_t address;
  bool operator==(const Record&) const = default;
};

void append(std::vector<Record>& records, const std::string& host, unsigned first, unsigned last) {
  const std::string name = trimmed(host, blanks);
  for (unsigned port = first; port <= last; ++port) {
    records.push_back({name, static_cast<uint16_t>(port), dotted(name).value_or(0)});
  }
}

std::vector<Record> plain_records(const std::string& text, bool strict) {
  std::vector<Record> records;
  for (const std::string& entry : pieces_of(text, ',')) {
    if (entry.empty()) continue;
    auto pieces = pieces_of(entry, ':');
    if (pieces.back().empty()) pieces.pop_back();
    if (pieces.size() != 2) {
      if (strict) append(records, pieces[0], 0, 0);
      continue;
    }
    auto bounds = pieces_of(pieces[1], '-');
    if (bounds.back().empty()) bounds.pop_back();
    if (bounds.empty()) continue;
    const std::string& second = bounds[bounds.size() < 2 ? 0 : 1];
    if (!strict) {
      append(records, pieces[0], lenient_port(bounds[0]), lenient_port(second));
    } else if (strict_port(bounds[0]) && strict_port(second)) {
      append(records, pieces[0], *strict_port(bounds[0]), *strict_port(second));
    }
  }
  return records;
}

std::optional<std::pair<uint32_t, uint16_t>> plain_address(std::string text) {
  while (!text.empty() && contains(blanks, text[0])) text.erase(0, 1);
  const auto loopback = htonl(INADDR_LOOPBACK);
  std::string host = text;
  std::string port;
  if (const auto colon = text.rfind(':'); colon != text.npos) {
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
  } else if (!dotted(text)) {
    host = "";
    port = text;
  }
  if (!host.empty() && !dotted(host)) return std::nullopt;
  if (!port.empty() && !strict_port(port)) return std::nullopt;
  return std::pair(host.empty() ? loopback : *dotted(host),
                   port.empty() ? uint16_t{0} : *strict_port(port));
}

void check_address(const std::string& text) {
  sockaddr_in address;
  std::memset(&address, 0x5A, sizeof address);
  const sockaddr_in before = address;
  const auto expected = plain_address(text);
  FUZZ_CHECK(net::parse_addr(text.data(), text.data() + text.size(), address) ==
             expected.has_value());
  if (!expected) {
    FUZZ_CHECK(std::memcmp(&address, &before, sizeof address) == 0);
    return;
  }
  FUZZ_CHECK(address.sin_family == AF_INET && address.sin_addr.s_addr == expected->first &&
             ntohs(address.sin_port) == expected->second);
  sockaddr_in again{};
  FUZZ_CHECK(net::parse_addr(text.c_str(), nullptr, again));
  FUZZ_CHECK(std::memcmp(&address, &again, sizeof address) == 0);
}

void check_lists(const std::string& text) {
  std::list<net::Host> hosts;
  net::parse_hosts(text, hosts);
  std::vector<Record> found;
  for (const auto& host : hosts)
    found.push_back({host.host, host.port, dotted(host.host).value_or(0)});
  FUZZ_CHECK(found == plain_records(text, false));

  std::list<net::HostAddr> addresses;
  net::parse_addrs(text, addresses);
  found.clear();
  for (const auto& address : addresses) {
    FUZZ_CHECK(address.addr.sin_family == AF_INET && ntohs(address.addr.sin_port) == address.port);
    found.push_back({address.host, address.port, address.addr.sin_addr.s_addr});
  }
  FUZZ_CHECK(found == plain_records(text, true));
}

/// An address, or one with the number of bits that count and none set behind them.
std::optional<std::pair<uint32_t, uint32_t>> plain_network(const std::string& entry) {
  const auto pieces = pieces_of(trimmed(entry, blanks), '/');
  const auto address = dotted(pieces[0]);
  if (!address || pieces.size() > 2) return std::nullopt;
  unsigned bits = 32;
  if (pieces.size() == 2) {
    if (pieces[1].empty()) return std::nullopt;
    bits = 0;
    for (const char c : pieces[1]) {
      if (!contains(digits, c)) return std::nullopt;
      bits = std::min(bits * 10 + static_cast<unsigned>(c - '0'), 99u);
    }
  }
  if (bits > 32) return std::nullopt;
  const auto mask = static_cast<uint32_t>(0xFFFFFFFF00000000u >> bits);
  if ((ntohl(*address) & ~mask) != 0) return std::nullopt;
  return std::pair(ntohl(*address), mask);
}

void check_networks(const std::string& text) {
  std::vector<std::pair<uint32_t, uint32_t>> networks;
  bool valid = true;
  for (const std::string& entry : pieces_of(text, ',')) {
    if (entry.empty()) continue;
    const auto network = plain_network(entry);
    valid = valid && network;
    if (network) networks.push_back(*network);
  }
  valid = valid && !networks.empty();
  net::AddressList list;
  std::string error;
  FUZZ_CHECK(list.parse(text, error) == valid && error.empty() == valid);
  FUZZ_CHECK(valid || list.empty());
  if (!valid) return;
  std::vector<uint32_t> asked = {0, 0xFFFFFFFF, 0x7F000001};
  for (const auto& [address, mask] : networks) {
    for (const uint32_t near : {address - 1, address, address | ~mask, (address | ~mask) + 1}) {
      asked.push_back(near);
    }
  }
  for (const uint32_t address : asked) {
    const bool expected = std::any_of(networks.begin(), networks.end(), [&](const auto& network) {
      return (address & network.second) == network.first;
    });
    FUZZ_CHECK(list.contains(htonl(address)) == expected);
  }
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  // A list of ranges of all ports is long without being interesting.
  if (text.find('\0') != text.npos || std::count(text.begin(), text.end(), '-') > 2) return 0;
  cv::fuzz::check_address(text);
  cv::fuzz::check_lists(text);
  cv::fuzz::check_networks(text);
  return 0;
}
