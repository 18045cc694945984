#include "tools/analyse/rtp_packet.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <pcap/dlt.h>
#include <sstream>
#include <sys/socket.h>
#include <utility>

namespace cv::tools {

namespace {

constexpr uint16_t ethertype_ipv4 = 0x0800;
constexpr uint16_t ethertype_ipv6 = 0x86DD;
constexpr uint8_t protocol_udp = 17;

/// What is left of a frame; every read says whether it was there.
class Bytes {
 public:
  explicit Bytes(std::span<const uint8_t> left) : m_left(left) {}

  std::size_t size() const { return m_left.size(); }
  bool holds(std::size_t count) const { return m_left.size() >= count; }
  uint8_t u8(std::size_t at) const { return m_left[at]; }
  uint16_t u16(std::size_t at) const {
    return static_cast<uint16_t>(m_left[at] << 8 | m_left[at + 1]);
  }
  uint32_t u32(std::size_t at) const { return uint32_t{u16(at)} << 16 | u16(at + 2); }
  std::span<const uint8_t> span() const { return m_left; }
  void copy(std::size_t at, std::size_t count, std::array<uint8_t, 16>& to) const {
    std::copy_n(m_left.begin() + static_cast<std::ptrdiff_t>(at), count, to.begin());
  }
  void skip(std::size_t count) { m_left = m_left.subspan(count); }
  void cut_to(std::size_t count) { m_left = m_left.first(count); }

 private:
  std::span<const uint8_t> m_left;
};

/// Goes to the network layer; its ethertype, or 0.
uint16_t skip_link_header(int link_type, Bytes& bytes) {
  const auto behind = [&](std::size_t header, std::size_t type_at) -> uint16_t {
    if (!bytes.holds(header)) return 0;
    uint16_t type = bytes.u16(type_at);
    bytes.skip(header);
    // Tags of virtual networks, one inside the other.
    while ((type == 0x8100 || type == 0x88A8 || type == 0x9100) && bytes.holds(4)) {
      type = bytes.u16(2);
      bytes.skip(4);
    }
    return type;
  };
  switch (link_type) {
    case DLT_EN10MB:
      return behind(14, 12);
    case DLT_LINUX_SLL:
      return behind(16, 14);
    case DLT_LINUX_SLL2:
      return behind(20, 0);
    case DLT_NULL:  // an address family in the capturing machine's byte order, which differs for IPv6
    case DLT_LOOP:
      if (!bytes.holds(4)) return 0;
      bytes.skip(4);
      break;
    default:
      break;
  }
  if (!bytes.holds(1)) return 0;
  const int version = bytes.u8(0) >> 4;
  return version == 4 ? ethertype_ipv4 : version == 6 ? ethertype_ipv6 : uint16_t{0};
}

/// Goes to the datagram of an IP packet of which `length` bytes are said to be left.
FrameKind enter_payload(Bytes& bytes, std::size_t length) {
  if (!bytes.holds(length)) return FrameKind::truncated;
  bytes.cut_to(length);
  return FrameKind::rtp;
}

FrameKind skip_ipv4(Bytes& bytes, RtpKey& key) {
  if (!bytes.holds(20) || bytes.u8(0) >> 4 != 4) return FrameKind::other;
  const std::size_t header = std::size_t{4} * (bytes.u8(0) & 15U);
  const std::size_t total = bytes.u16(2);
  if (header < 20 || total < header || bytes.u8(9) != protocol_udp) return FrameKind::other;
  if ((bytes.u16(6) & 0x3FFF) != 0) return FrameKind::fragment;
  if (!bytes.holds(header)) return FrameKind::truncated;
  bytes.copy(12, 4, key.from.address);
  bytes.copy(16, 4, key.to.address);
  bytes.skip(header);
  return enter_payload(bytes, total - header);
}

FrameKind skip_ipv6(Bytes& bytes, RtpKey& key) {
  constexpr uint8_t hop_by_hop = 0, routing = 43, fragment = 44, destination = 60;
  if (!bytes.holds(40) || bytes.u8(0) >> 4 != 6) return FrameKind::other;
  uint8_t next = bytes.u8(6);
  std::size_t length = bytes.u16(4);
  key.from.v6 = key.to.v6 = true;
  bytes.copy(8, 16, key.from.address);
  bytes.copy(24, 16, key.to.address);
  bytes.skip(40);
  while (next == hop_by_hop || next == routing || next == destination) {
    if (!bytes.holds(8)) return FrameKind::truncated;
    const std::size_t header = 8 + 8 * std::size_t{bytes.u8(1)};
    if (header > length) return FrameKind::other;
    if (!bytes.holds(header)) return FrameKind::truncated;
    next = bytes.u8(0);
    bytes.skip(header);
    length -= header;
  }
  if (next == fragment) return FrameKind::fragment;
  if (next != protocol_udp) return FrameKind::other;
  return enter_payload(bytes, length);
}

bool skip_udp(Bytes& bytes, RtpKey& key) {
  if (!bytes.holds(8)) return false;
  const std::size_t length = bytes.u16(4);
  if (length < 8 || !bytes.holds(length)) return false;
  key.from.port = bytes.u16(0);
  key.to.port = bytes.u16(2);
  bytes.cut_to(length);
  bytes.skip(8);
  return true;
}

bool read_rtp(Bytes bytes, RtpPacket& out) {
  if (!bytes.holds(12) || bytes.u8(0) >> 6 != 2) return false;
  const uint8_t flags = bytes.u8(0);
  out.payload_type = bytes.u8(1) & 0x7F;
  if (out.payload_type >= 64 && out.payload_type <= 95) return false;  // RTCP: RFC 5761, 4
  out.sequence = bytes.u16(2);
  out.timestamp = bytes.u32(4);
  out.key.ssrc = bytes.u32(8);
  const std::size_t header = 12 + 4 * (flags & 15U);
  if (!bytes.holds(header)) return false;
  bytes.skip(header);
  if ((flags & 0x10) != 0) {
    if (!bytes.holds(4)) return false;
    const std::size_t extension = 4 + 4 * std::size_t{bytes.u16(2)};
    if (!bytes.holds(extension)) return false;
    bytes.skip(extension);
  }
  if ((flags & 0x20) != 0) {
    if (!bytes.holds(1)) return false;
    const std::size_t padding = bytes.u8(bytes.size() - 1);
    if (padding == 0 || !bytes.holds(padding)) return false;
    bytes.cut_to(bytes.size() - padding);
  }
  out.payload = bytes.span();
  return true;
}

std::string endpoint_text(const RtpEndpoint& endpoint) {
  char address[INET6_ADDRSTRLEN] = {};
  inet_ntop(endpoint.v6 ? AF_INET6 : AF_INET, endpoint.address.data(), address, sizeof address);
  std::ostringstream text;
  text << (endpoint.v6 ? "[" : "") << address << (endpoint.v6 ? "]:" : ":") << endpoint.port;
  return std::move(text).str();
}

template <typename T>
bool parse_number(std::string_view text, int base, T& out) {
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), out, base);
  return !text.empty() && code == std::errc() && end == text.data() + text.size();
}

}  // namespace

bool link_type_known(int link_type) {
  constexpr std::array known = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                                DLT_IPV4,   DLT_IPV6,      DLT_NULL,       DLT_LOOP};
  return std::find(known.begin(), known.end(), link_type) != known.end();
}

FrameKind read_frame(int link_type, std::span<const uint8_t> frame, RtpPacket& out) {
  Bytes bytes(frame);
  RtpPacket packet;
  FrameKind kind = FrameKind::other;
  switch (skip_link_header(link_type, bytes)) {
    case ethertype_ipv4:
      kind = skip_ipv4(bytes, packet.key);
      break;
    case ethertype_ipv6:
      kind = skip_ipv6(bytes, packet.key);
      break;
    default:
      break;
  }
  if (kind != FrameKind::rtp) return kind;
  if (!skip_udp(bytes, packet.key) || !read_rtp(bytes, packet)) return FrameKind::other;
  out = packet;
  return FrameKind::rtp;
}

std::string stream_text(const RtpKey& key) {
  char ssrc[16];
  std::snprintf(ssrc, sizeof ssrc, "/0x%08x", key.ssrc);
  return endpoint_text(key.from) + "-" + endpoint_text(key.to) + ssrc;
}

std::optional<StreamChoice> StreamChoice::parse(const std::string& text) {
  StreamChoice choice;
  std::string ends = text;
  const auto slash = text.rfind('/');
  const std::string ssrc = slash == text.npos ? text : text.substr(slash + 1);
  if (ssrc.starts_with("0x")) {
    uint32_t number = 0;
    if (!parse_number(std::string_view(ssrc).substr(2), 16, number)) return std::nullopt;
    choice.m_ssrc = number;
    ends = slash == text.npos ? "" : text.substr(0, slash);
    if (slash == text.npos) return choice;
  }
  const auto dash = ends.find('-');
  choice.m_from = parse_end(ends.substr(0, dash));
  if (!choice.m_from) return std::nullopt;
  if (dash == ends.npos) return choice;
  choice.m_to = parse_end(ends.substr(dash + 1));
  return choice.m_to ? std::optional(choice) : std::nullopt;
}

std::optional<StreamChoice::End> StreamChoice::parse_end(const std::string& text) {
  End end;
  std::string address = text;
  std::string port;
  const auto bracket = text.find(']');
  const bool bracketed = text.starts_with('[') && bracket != text.npos;
  if (bracketed) {
    address = text.substr(1, bracket - 1);
    port = text.substr(bracket + 1);
  } else if (std::count(text.begin(), text.end(), ':') == 1) {
    address = text.substr(0, text.find(':'));
    port = text.substr(text.find(':'));
  }
  end.any_port = port.empty();
  if (!port.empty() &&
      (port[0] != ':' || !parse_number(std::string_view(port).substr(1), 10, end.endpoint.port))) {
    return std::nullopt;
  }
  if (inet_pton(AF_INET, address.c_str(), end.endpoint.address.data()) == 1) return end;
  end.endpoint.v6 = true;
  if (inet_pton(AF_INET6, address.c_str(), end.endpoint.address.data()) == 1) return end;
  return std::nullopt;
}

bool StreamChoice::matches(const std::optional<End>& end, const RtpEndpoint& endpoint) {
  if (!end) return true;
  RtpEndpoint wanted = end->endpoint;
  if (end->any_port) wanted.port = endpoint.port;
  return wanted == endpoint;
}

bool StreamChoice::matches(const RtpKey& key) const {
  return matches(m_from, key.from) && matches(m_to, key.to) &&
         m_ssrc.value_or(key.ssrc) == key.ssrc;
}

}  // namespace cv::tools
