#include "net/net_datagram_batch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

namespace cv::net {

// The slots are left as they come: clearing them would make four mebibytes resident.
DatagramBatch::DatagramBatch() : m_slots(std::make_unique_for_overwrite<Slot[]>(max_datagrams)) {
  for (std::size_t i = 0; i < max_datagrams; ++i) {
    m_parts[i] = {m_slots[i].data, Slot::room_bytes};
    m_headers[i] = {};
    m_headers[i].msg_hdr.msg_iov = &m_parts[i];
    m_headers[i].msg_hdr.msg_iovlen = 1;
    m_headers[i].msg_hdr.msg_name = &m_sources[i];
    m_headers[i].msg_hdr.msg_namelen = sizeof m_sources[i];
    m_headers[i].msg_hdr.msg_control = m_controls[i].data;
    m_headers[i].msg_hdr.msg_controllen = sizeof m_controls[i].data;
  }
}

int DatagramBatch::fill(int descriptor) {
  // The kernel wrote the lengths it used into the headers of the last batch.
  for (std::size_t i = 0; i < m_count; ++i) {
    m_headers[i].msg_hdr.msg_namelen = sizeof m_sources[i];
    m_headers[i].msg_hdr.msg_controllen = sizeof m_controls[i].data;
  }
  m_count = m_next = 0;
  const int received =
      recvmmsg(descriptor, m_headers.data(), max_datagrams, MSG_DONTWAIT | MSG_NOSIGNAL, nullptr);
  if (received < 0) return errno;
  m_count = static_cast<std::size_t>(received);
  // The counter only grows: the last datagram knows all that the others know.
  if (m_count != 0) note_dropped(m_headers[m_count - 1].msg_hdr);
  return 0;
}

std::size_t DatagramBatch::take(unsigned char* buffer, std::size_t size) {
  const std::size_t length = std::min<std::size_t>(m_headers[m_next].msg_len, size);
  std::memcpy(buffer, m_slots[m_next].data, length);
  ++m_next;
  return length;
}

uint64_t DatagramBatch::skip_others(const AddressList& allowed) {
  const std::size_t first = m_next;
  for (; !empty() && !allowed.contains(m_sources[m_next].sin_addr.s_addr); ++m_next) {
    m_last_skipped_source = m_sources[m_next].sin_addr.s_addr;
  }
  return m_next - first;
}

uint64_t DatagramBatch::take_dropped() { return std::exchange(m_dropped, 0); }

void DatagramBatch::note_dropped(msghdr& header) {
  for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
    if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SO_RXQ_OVFL) continue;
    uint32_t counter = 0;
    std::memcpy(&counter, CMSG_DATA(item), sizeof counter);
    m_dropped += counter - m_drop_counter;  // in 32 bits: right over a wrap, too
    m_drop_counter = counter;
  }
}

}  // namespace cv::net
