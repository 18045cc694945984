#include "tools/load/packet_batch.h"

#include <cerrno>

namespace cv::tools {

media::Datagram& PacketBatch::next() {
  if (m_count == capacity) flush();
  return m_packets[m_count++];
}

void PacketBatch::flush() {
  for (std::size_t i = 0; i < m_count; ++i) {
    m_parts[i] = {m_packets[i].data(), m_packets[i].size()};
    m_headers[i].msg_hdr.msg_iov = &m_parts[i];
    m_headers[i].msg_hdr.msg_iovlen = 1;
  }
  for (std::size_t i = 0; i < m_count;) {
    const int sent = sendmmsg(m_descriptor, &m_headers[i], static_cast<unsigned>(m_count - i), 0);
    if (sent > 0) {
      m_sent += static_cast<uint64_t>(sent);
      i += static_cast<std::size_t>(sent);
    } else if (errno != EINTR) {
      m_error = errno;
      ++m_refused;
      ++i;
    }
  }
  m_count = 0;
}

}  // namespace cv::tools
