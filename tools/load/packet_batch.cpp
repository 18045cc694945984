#include "tools/load/packet_batch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/udp.h>

namespace cv::tools {

media::Datagram& PacketBatch::next() {
  if (m_count == capacity) flush();
  return m_packets[m_count++];
}

void PacketBatch::flush() {
  for (std::size_t first = 0; first < m_count;) first += send_from(first);
  m_count = 0;
}

/// One system call for what is left from `first` on; how many packets are done with.
std::size_t PacketBatch::send_from(std::size_t first) {
  unsigned messages = 0;
  for (std::size_t i = first; i < m_count; ++messages) {
    const std::size_t packets = run_length(i);
    set_message(m_headers[messages], i, packets);
    i += packets;
  }
  const int sent = sendmmsg(m_descriptor, m_headers.data(), messages, 0);
  const std::size_t first_run = m_headers[0].msg_hdr.msg_iovlen;
  if (sent < 0 && errno == EINTR) return 0;
  if (sent < 0 && errno == EIO && first_run > 1) {
    m_segmenting = false;  // the way to this destination cannot do it
    return 0;
  }
  if (sent < 0) {
    m_error = errno;
    m_refused += first_run;
    return first_run;
  }
  std::size_t packets = 0;
  for (int i = 0; i < sent; ++i)
    packets += m_headers[static_cast<std::size_t>(i)].msg_hdr.msg_iovlen;
  m_sent += packets;
  return packets;
}

/// How many packets from `first` on are equally long and may go as one message.
std::size_t PacketBatch::run_length(std::size_t first) const {
  const std::size_t size = m_packets[first].size();
  const std::size_t most = m_segmenting ? std::min(max_run_packets, max_run_bytes / size) : 1;
  std::size_t packets = 1;
  while (packets < most && first + packets < m_count && m_packets[first + packets].size() == size) {
    ++packets;
  }
  return packets;
}

void PacketBatch::set_message(mmsghdr& message, std::size_t first, std::size_t packets) {
  for (std::size_t i = first; i < first + packets; ++i) {
    m_parts[i] = {m_packets[i].data(), m_packets[i].size()};
  }
  msghdr& header = message.msg_hdr;
  header.msg_iov = &m_parts[first];
  header.msg_iovlen = packets;
  header.msg_control = packets == 1 ? nullptr : m_controls[first].data;
  header.msg_controllen = packets == 1 ? 0 : sizeof m_controls[first].data;
  if (packets == 1) return;
  cmsghdr* item = CMSG_FIRSTHDR(&header);
  item->cmsg_level = SOL_UDP;
  item->cmsg_type = UDP_SEGMENT;
  item->cmsg_len = CMSG_LEN(sizeof(uint16_t));
  const auto size = static_cast<uint16_t>(m_packets[first].size());
  std::memcpy(CMSG_DATA(item), &size, sizeof size);
}

}  // namespace cv::tools
