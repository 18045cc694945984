// The packets of one RTP stream to its audio.
//
// Packets are put into the order of their sequence numbers within a window of `reorder_packets`; what
// comes later than that, or twice, is dropped. Where audio is missing (lost packets, silence that was not
// sent, packets of other payload types) there is silence, as long as the time stamps say, so that the
// audio keeps the call's time. Time stamps that contradict the clock of the capture by more than a second
// have begun anew: then that clock says how long the gap was. Numbers and time stamps wrap around.
// Another source that goes on where one ended (a new SSRC) is the same stream, begun anew.
// Pure: no file, no clock. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "tools/analyse/rtp_packet.h"

namespace cv::tools {

inline constexpr uint8_t payload_type_mulaw = 0;
inline constexpr uint8_t payload_type_alaw = 8;

inline bool is_g711(uint8_t payload_type) {
  return payload_type == payload_type_mulaw || payload_type == payload_type_alaw;
}

struct RtpFaults {
  uint64_t lost = 0;        // never came
  uint64_t late = 0;        // too late, or once again
  uint64_t other_type = 0;  // no G.711
  uint64_t stray = 0;       // far off in sequence, and alone
  uint64_t restarts = 0;    // of the sequence or of the time stamps
  uint64_t cut_gaps = 0;    // longer than max_gap_samples, and cut to that

  bool operator==(const RtpFaults&) const = default;
};

class RtpStream {
 public:
  static constexpr std::size_t reorder_packets = 50;  // a second of 20 ms packets
  static constexpr int64_t max_gap_samples = int64_t{300} * 8000;
  static constexpr int64_t max_arrival_us = int64_t{1} << 53;  // 285 years
  static constexpr std::size_t max_samples = std::size_t{24} * 3600 * 8000;

  /// `arrival_us` is the capture's time, within max_arrival_us. Payload is copied.
  void take(const RtpPacket& packet, int64_t arrival_us);
  /// The rest of the window; take() no more.
  void finish();

  /// 8,000 a second.
  std::vector<int16_t>& samples() { return m_samples; }
  /// Of the first audio; none yet: empty.
  std::optional<int64_t> first_arrival_us() const { return m_first_arrival_us; }
  const RtpFaults& faults() const { return m_faults; }
  /// It is longer than max_samples: the rest is missing.
  bool too_long() const { return m_too_long; }

 private:
  struct Held {
    uint8_t payload_type = 0;
    uint32_t timestamp = 0;
    int64_t arrival_us = 0;
    std::vector<uint8_t> payload;
  };

  void hold(int64_t number, Held packet);
  void begin_source(uint32_t ssrc);
  void restart(uint16_t sequence);
  void release_first();
  void play(const Held& packet);
  int64_t gap_before(const Held& packet);
  void append_silence(int64_t samples);

  std::optional<uint32_t> m_ssrc;
  bool m_source_changed = false;      // since what was played last
  std::map<int64_t, Held> m_window;   // by unwrapped sequence number
  std::optional<int64_t> m_newest;    // number
  std::optional<int64_t> m_released;  // number
  std::optional<std::pair<uint16_t, Held>> m_stray;
  uint32_t m_next_timestamp = 0;
  int64_t m_last_arrival_us = 0;  // of what was played last
  int64_t m_last_samples = 0;
  std::optional<int64_t> m_first_arrival_us;
  std::vector<int16_t> m_samples;
  RtpFaults m_faults;
  bool m_too_long = false;
};

}  // namespace cv::tools
