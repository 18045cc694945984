// The media packets as they lie in a datagram.
//
// Each record is a view of a datagram's first bytes: no padding, every integer little-endian but the
// report address and port, which stay in network byte order. What follows a record (call id, samples,
// feature byte) is reached through an accessor.
//
// Invariant: a record may be viewed only over bytes that have been checked to hold the whole packet
// (PacketReader does that), in storage aligned to 8 bytes. A view owns nothing.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace cv::media {

static_assert(std::endian::native == std::endian::little, "packets are viewed in place");

using Uuid = std::array<uint8_t, 16>;

enum PacketType : uint8_t {
  PACKET_START = 0x81,
  PACKET_TERM = 0x82,
  PACKET_DATA = 0x83,
  PACKET_CTRL = 0x84,
};

inline constexpr uint32_t packet_marker = 0x00FF00FF;
inline constexpr uint8_t packet_version = 2;
inline constexpr std::size_t max_packet_bytes = 1376;

/// Feature bits of START and of a feature update: R R S S A A in bits 7 to 2.
inline constexpr uint8_t features_sample_detection = 0x30;
inline constexpr uint8_t features_activity_detection = 0x0C;

/// The six letters of a feature byte, bit 7 first; "-" stands for a clear bit.
inline std::string feature_letters(uint8_t features) {
  std::string letters = "RRSSAA";
  for (std::size_t i = 0; i < letters.size(); ++i) {
    if ((features & (0x80 >> i)) == 0) letters[i] = '-';
  }
  return letters;
}

#pragma pack(push, 1)

struct PacketHeader {
  uint32_t marker;
  uint8_t type;
  uint8_t version;
  uint8_t param;
  uint8_t flags;
  uint64_t id;  // key of the call; the source derives it from the call id, here it is only compared
  Uuid uuid;
  uint64_t mt;  // media time, microseconds
};

struct StartPacket : PacketHeader {
  static constexpr uint8_t flag_rule = 0x80;
  static constexpr uint8_t flag_n = 0x40;
  static constexpr uint8_t flag_outbound = 0x01;

  uint64_t ts;
  uint64_t sync_ts;
  uint64_t sync_mt;
  uint64_t rule;
  uint32_t report_addr;  // network byte order
  uint16_t report_port;  // network byte order; 0: the call has no report address
  uint16_t call_id_length;

  uint8_t features() const { return param; }
  bool has_rule() const { return (flags & flag_rule) != 0; }
  bool outbound() const { return (flags & flag_outbound) != 0; }
  /// Ends at the first NUL or with the packet; lives as long as the datagram.
  std::string_view call_id() const {
    const std::string_view whole(reinterpret_cast<const char*>(this + 1), call_id_length);
    return whole.substr(0, whole.find('\0'));
  }
};

struct TerminatePacket : PacketHeader {};

struct DataPacket : PacketHeader {
  static constexpr uint8_t param_s = 0x80;
  static constexpr uint8_t flag_terminator = 0x01;

  uint32_t seq;
  uint32_t off;
  uint16_t num;  // samples that follow

  /// 0 originator, 1 terminator.
  uint16_t side() const { return flags & flag_terminator; }
  /// `num` samples of one side in time order, 16-bit PCM; live as long as the datagram.
  const int16_t* samples() const {
    return reinterpret_cast<const int16_t*>(reinterpret_cast<const unsigned char*>(this) +
                                            sizeof(DataPacket));
  }
};

struct ControlPacket : PacketHeader {
  static constexpr uint8_t flag_update = 0x80;
  static constexpr uint8_t command_features = 0;

  uint8_t command() const { return param; }
  bool is_feature_update() const {
    return (flags & flag_update) != 0 && command() == command_features;
  }
  /// The call's new feature bits; there only if is_feature_update().
  uint8_t features() const { return *reinterpret_cast<const uint8_t*>(this + 1); }
};

#pragma pack(pop)

// Without padding the sizes fix every offset: the fields stand in the order of the wire.
static_assert(sizeof(PacketHeader) == 40);
static_assert(sizeof(StartPacket) == 80);
static_assert(sizeof(TerminatePacket) == 40);
static_assert(sizeof(DataPacket) == 50);
static_assert(sizeof(ControlPacket) == 40);

inline constexpr std::size_t control_features_bytes = 1;
inline constexpr std::size_t max_call_id_bytes = max_packet_bytes - sizeof(StartPacket);
inline constexpr std::size_t max_data_samples =
    (max_packet_bytes - sizeof(DataPacket)) / sizeof(int16_t);

}  // namespace cv::media
