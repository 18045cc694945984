// The media source of a node under test: sends the packets of calls from a socket of its own.
#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <gtest/gtest.h>
#include <span>
#include <sys/socket.h>
#include <thread>

#include "net/net_socket.h"
#include "support/packet_builder.h"
#include "support/udp_receiver.h"

namespace cv::test {

class MediaSource {
 public:
  static constexpr uint8_t all_features = 0x3C;

  MediaSource() { m_socket.open(0, 0); }

  uint16_t media_port() const { return m_media_port; }

  void send(const media::Datagram& datagram) {
    // Not by the socket's own send(), which has nothing to do for an empty datagram.
    const sockaddr_in to{AF_INET, htons(m_media_port), {htonl(INADDR_LOOPBACK)}, {}};
    EXPECT_EQ(sendto(m_socket.descriptor(), datagram.data(), datagram.size(), 0,
                     reinterpret_cast<const sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(datagram.size()));
  }

  /// START of a call of rule 1, whose reports go to this port of this machine (0: nowhere).
  void send_start(const CallPackets& call, uint16_t report_port, uint8_t features = all_features) {
    send(call.start({.features = features,
                     .flags = media::StartPacket::flag_rule,
                     .ts = 1635500000,
                     .rule = 1,
                     .report_addr = htonl(INADDR_LOOPBACK),
                     .report_port = htons(report_port),
                     .call_id = "call-of-a-test"}));
  }

  /// The samples as 20 ms packets, faster than real time but no faster than a node reads them.
  void send_audio(const CallPackets& call, uint16_t side, std::span<const int16_t> samples,
                  uint32_t first_seq = 1) {
    constexpr size_t packet_samples = 160;
    for (uint32_t seq = first_seq; !samples.empty(); ++seq) {
      const size_t count = std::min(packet_samples, samples.size());
      send(call.data(side, seq, samples.first(count), seq * 20000));
      samples = samples.subspan(count);
      // The default receive buffer holds some 160 of these packets.
      if (seq % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

 protected:
  const uint16_t m_media_port = free_udp_port();

 private:
  net::Socket m_socket;
};

}  // namespace cv::test
