// Datagrams on their way to one destination, many to a system call, and runs of equally long ones
// also many to a pass through the kernel's network stack, which takes them apart at its far end
// (UDP_SEGMENT, udp(7)). What arrives is the same.
//
// One thread. Memory: fixed once every packet has had its largest size. Failure: what the kernel
// refuses is counted, and the batch goes on behind it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <sys/socket.h>

#include "media/media_packet_writer.h"

namespace cv::tools {

class PacketBatch {
 public:
  /// `descriptor`: a connected UDP socket, borrowed.
  explicit PacketBatch(int descriptor) : m_descriptor(descriptor) {}
  PacketBatch(const PacketBatch&) = delete;
  PacketBatch& operator=(const PacketBatch&) = delete;

  /// The packet to fill next; it is in the batch from now on. Sends first when the batch is full.
  media::Datagram& next();
  void flush();

  uint64_t sent() const { return m_sent; }
  uint64_t refused() const { return m_refused; }
  /// The error number of the latest refusal, or 0.
  int error() const { return m_error; }

 private:
  static constexpr std::size_t capacity = 256;
  // The kernel's limits for what is taken apart.
  static constexpr std::size_t max_run_packets = 64;
  static constexpr std::size_t max_run_bytes = 65000;

  struct Control {
    alignas(cmsghdr) unsigned char data[CMSG_SPACE(sizeof(uint16_t))];
  };

  std::size_t send_from(std::size_t first);
  std::size_t run_length(std::size_t first) const;
  void set_message(mmsghdr& message, std::size_t first, std::size_t packets);

  const int m_descriptor;
  std::array<media::Datagram, capacity> m_packets;
  std::array<iovec, capacity> m_parts{};
  std::array<mmsghdr, capacity> m_headers{};
  std::array<Control, capacity> m_controls{};
  bool m_segmenting = true;
  std::size_t m_count = 0;
  uint64_t m_sent = 0;
  uint64_t m_refused = 0;
  int m_error = 0;
};

}  // namespace cv::tools
