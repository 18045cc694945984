// A call as a sequence of datagrams and the times at which they are due.
//
// START at 0; then every 20 ms a DATA packet of 160 samples for the originator and one for the
// terminator; TERM when the longer side is played. A side that is shorter, or empty, is silence from
// there on: both sides of a call last equally long, unless one is said not to be there at all. Pure: no
// clock, no socket.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "media/media_packet_writer.h"

namespace cv::tools {

inline constexpr std::size_t block_samples = 160;
inline constexpr int64_t block_us = 20000;

/// What a START asks for; calls may have it in common.
struct StartSettings {
  uint64_t rule = 0;
  uint64_t timestamp = 0;
  uint8_t features = 0;
  uint32_t report_addr = 0;  // network byte order
  uint16_t report_port = 0;  // network byte order; 0: none
};

/// At media time 0. False when the call id is too long.
bool write_start(const media::CallKey& call, std::string_view call_id,
                 const StartSettings& settings, media::Datagram& out);

struct CallSettings : StartSettings {
  std::string call_id;
  media::Uuid uuid{};
  /// By side; nothing is ever sent for a side that is not there.
  std::array<bool, 2> there = {true, true};
};

class CallSchedule {
 public:
  using Sides = std::array<std::vector<int16_t>, 2>;  // originator, terminator

  CallSchedule(CallSettings settings, Sides sides);

  /// The next datagram and when it is due, in microseconds since the call's start; false after TERM,
  /// or when a packet cannot be built (a call id that is too long).
  bool next(int64_t& due_us, media::Datagram& out);
  /// Goes straight to TERM, at the media time reached: a call that is broken off still ends.
  void cut_short();

  int64_t duration_us() const { return static_cast<int64_t>(m_blocks) * block_us; }

 private:
  bool skips(uint16_t side) const { return !m_settings.there[side]; }
  void pass_side();
  bool write_block(std::size_t block, uint16_t side, media::Datagram& out);

  CallSettings m_settings;
  media::CallKey m_key;
  Sides m_sides;
  std::size_t m_blocks;
  std::size_t m_block = 0;
  uint16_t m_side = 0;
  bool m_started = false;
  bool m_ended = false;
};

}  // namespace cv::tools
