// Builds media packets: the sender's side of the wire format.
//
// Each write_ operation replaces `out` with one whole datagram. `out` keeps its capacity from one call
// to the next, so a sender that reuses it allocates nothing once it has grown. Any thread.
// Failure: false, and `out` is empty, when the packet would not fit max_packet_bytes.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "media/media_packet.h"

namespace cv::media {

using Datagram = std::vector<unsigned char>;

/// What every packet of a call carries.
struct CallKey {
  uint64_t id = 0;  // whatever tells calls apart; receivers only compare it
  Uuid uuid{};
};

struct StartFields {
  uint8_t features = 0;  // R R S S A A in bits 7 to 2
  uint8_t flags = 0;     // StartPacket::flag_...
  uint64_t ts = 0;
  uint64_t sync_ts = 0;
  uint64_t sync_mt = 0;
  uint64_t rule = 0;
  uint32_t report_addr = 0;    // network byte order
  uint16_t report_port = 0;    // network byte order; 0: no report address
  std::string_view call_id{};  // at most max_call_id_bytes
};

struct DataFields {
  uint16_t side = 0;  // 0 originator, 1 terminator
  uint32_t seq = 0;   // counts up by one a packet of the side; starts above 0
  uint32_t off = 0;
  bool s = false;                      // the bit that traces show as "S"
  std::span<const int16_t> samples{};  // at most max_data_samples
};

/// `mt_us` is the packet's media time in microseconds.
bool write_start(const CallKey& call, uint64_t mt_us, const StartFields& fields, Datagram& out);
bool write_data(const CallKey& call, uint64_t mt_us, const DataFields& fields, Datagram& out);
/// A control packet that is no feature update.
bool write_control(const CallKey& call, uint64_t mt_us, uint8_t command, Datagram& out);
bool write_feature_update(const CallKey& call, uint64_t mt_us, uint8_t features, Datagram& out);
bool write_terminate(const CallKey& call, uint64_t mt_us, Datagram& out);

}  // namespace cv::media
