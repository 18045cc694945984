// One captured frame to the RTP packet in it: link layer, IP, UDP, RTP (RFC 3550). Pure; any thread.
//
// A capture holds anything, and no signalling says what is RTP: what has the form of it is taken for it
// here, and whether packets make a stream is for rtp_stream.h to say. Nothing is read behind `frame`,
// whatever the lengths in it claim.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <tuple>

namespace cv::tools {

struct RtpEndpoint {
  std::array<uint8_t, 16> address{};  // of IPv4 the first four
  bool v6 = false;
  uint16_t port = 0;

  bool operator==(const RtpEndpoint&) const = default;
  bool operator<(const RtpEndpoint& other) const {
    return std::tie(address, v6, port) < std::tie(other.address, other.v6, other.port);
  }
};

/// What tells streams apart.
struct RtpKey {
  RtpEndpoint from;
  RtpEndpoint to;
  uint32_t ssrc = 0;

  bool operator==(const RtpKey&) const = default;
  bool operator<(const RtpKey& other) const {
    return std::tie(from, to, ssrc) < std::tie(other.from, other.to, other.ssrc);
  }
};

/// "10.0.0.1:4000-10.0.0.2:5000/0x1a2b3c4d"; IPv6 addresses stand in brackets.
std::string stream_text(const RtpKey& key);

struct RtpPacket {
  RtpKey key;
  uint8_t payload_type = 0;
  uint16_t sequence = 0;
  uint32_t timestamp = 0;
  std::span<const uint8_t> payload;  // of the frame
};

enum class FrameKind {
  rtp,
  other,      // nothing of RTP's form; RTCP, too
  truncated,  // more was sent than was captured
  fragment,   // of an IP packet: these are not put together
};

/// Whether frames of a capture with this link type (a DLT_ number of libpcap) can be read.
bool link_type_known(int link_type);

/// `out` is set for FrameKind::rtp alone.
FrameKind read_frame(int link_type, std::span<const uint8_t> frame, RtpPacket& out);

/// A stream as a person names it: all of stream_text(), or parts of it, the source's address at the
/// least or the SSRC: "10.0.0.1", "10.0.0.1:4000-10.0.0.2", "10.0.0.1/0x1a2b3c4d", "0x1a2b3c4d".
class StreamChoice {
 public:
  /// Empty when the text is none.
  static std::optional<StreamChoice> parse(const std::string& text);

  bool matches(const RtpKey& key) const;

 private:
  struct End {
    RtpEndpoint endpoint;
    bool any_port = true;
  };
  static std::optional<End> parse_end(const std::string& text);
  static bool matches(const std::optional<End>& end, const RtpEndpoint& endpoint);

  std::optional<End> m_from;
  std::optional<End> m_to;
  std::optional<uint32_t> m_ssrc;
};

}  // namespace cv::tools
