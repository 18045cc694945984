// The datagrams of a flood: noise, cut packets, packets sent again, and packets of calls that the sender has
// no business with. It sees the good packets, as somebody on their way would.
//
// One thread. Deterministic for a seed and the packets it has seen.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "media/media_packet_writer.h"

namespace cv::test {

/// Whose calls the spoofed packets are of.
enum class SpoofedCalls : uint8_t {
  /// Calls that nobody has, each named once: what a node must hold of them is a session.
  fresh,
  /// The same few thousand calls that nobody has, over and over, with audio, absurd media times and
  /// report addresses anywhere: what a node can be made to hold is a call with all its analysers.
  few,
  /// The good calls themselves: ended, switched off, and carried to the last sequence number there is.
  good
};

class FloodMaker {
 public:
  FloodMaker(SpoofedCalls calls, uint64_t seed) : m_calls(calls), m_random(seed) {}

  /// A packet that has just been sent. Copied; older ones are forgotten after a while, and all of them
  /// when a call ends: its packets sent once more behind its end are another call to a node, with
  /// findings of its own, and nothing can tell that from a call that is made twice.
  void see(std::span<const unsigned char> packet);
  /// Whether there is a packet to copy from.
  bool ready() const { return m_seen_count != 0; }

  /// Replaces `out` by the next datagram of the flood, one to max_datagram_bytes long. When ready.
  void make(media::Datagram& out);

 private:
  static constexpr std::size_t max_datagram_bytes = 1472;  // unfragmented on an Ethernet
  static constexpr uint64_t few_calls = 4096;

  void make_noise(media::Datagram& out);
  void make_cut(media::Datagram& out);
  void make_spoofed(media::Datagram& out);
  void make_of_made_up_call(media::Datagram& out);
  void make_of_good_call(media::Datagram& out);

  std::size_t draw(std::size_t below) { return static_cast<std::size_t>(m_random() % below); }
  const media::Datagram& any_seen() { return m_seen[draw(std::min(m_seen_count, m_seen.size()))]; }
  std::span<const int16_t> any_audio();

  const SpoofedCalls m_calls;
  std::mt19937_64 m_random;
  std::array<media::Datagram, 4096> m_seen;
  std::size_t m_seen_count = 0;
  std::size_t m_made = 0;
  std::array<int16_t, 160> m_audio{};
};

}  // namespace cv::test
