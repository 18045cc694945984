// Datagrams that the kernel handed over in one system call and nobody has read yet, in order of
// arrival, and how many the kernel has dropped in front of a full receive buffer.
//
// Threads: one at a time. Memory: fixed; only the pages that datagrams touch are ever resident, a
// quarter of a mebibyte for media packets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>

#include "net/net_address_list.h"

namespace cv::net {

class DatagramBatch {
 public:
  /// More would save no more: at 64 the system call's own cost is spread thin, and the packets still
  /// lie in the second-level cache when they are read.
  static constexpr std::size_t max_datagrams = 64;

  DatagramBatch();
  DatagramBatch(const DatagramBatch&) = delete;
  DatagramBatch& operator=(const DatagramBatch&) = delete;

  bool empty() const { return m_next == m_count; }

  /// Takes what waits in the kernel, without blocking. Only when empty. 0, or the error number.
  int fill(int descriptor);

  /// Copies the next datagram, cut to `size` bytes, and returns the bytes copied. Not when empty.
  std::size_t take(unsigned char* buffer, std::size_t size);

  /// Drops the datagrams at the front whose source is not in `allowed`, and tells how many they were.
  /// Without copying anything: whoever floods the socket from elsewhere costs a look-up a datagram.
  uint64_t skip_others(const AddressList& allowed);

  /// Where the datagram came from that skip_others() dropped last; network byte order.
  uint32_t last_skipped_source() const { return m_last_skipped_source; }

  /// Datagrams dropped since this was last asked, as far as a datagram received after them has told.
  uint64_t take_dropped();

 private:
  // The odd part keeps the slots from competing for the same sets of the caches.
  struct Slot {
    alignas(64) unsigned char data[65536 + 7 * 64];
    static constexpr std::size_t room_bytes = 65536;
  };
  struct Control {
    alignas(cmsghdr) unsigned char data[CMSG_SPACE(sizeof(uint32_t))];
  };

  void note_dropped(msghdr& header);

  std::unique_ptr<Slot[]> m_slots;
  std::array<Control, max_datagrams> m_controls;
  std::array<sockaddr_in, max_datagrams> m_sources;
  std::array<iovec, max_datagrams> m_parts;
  std::array<mmsghdr, max_datagrams> m_headers;
  std::size_t m_count = 0;
  std::size_t m_next = 0;
  uint32_t m_drop_counter = 0;  // the kernel's: since the socket was made, wrapping
  uint64_t m_dropped = 0;
  uint32_t m_last_skipped_source = 0;
};

}  // namespace cv::net
