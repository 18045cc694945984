// An IPv4 UDP socket, for receiving media and for sending reports.
//
// Datagrams are taken from the kernel in batches (net_datagram_batch.h) and read one by one. What the
// kernel drops because the receive buffer is full, and what comes from a source that is not allowed,
// is counted and said in one WARNING line each at most every five seconds, of a reading thread that
// comes back to read.
//
// Receiving waits for a datagram, and for an interrupt descriptor beside it when one was set. A
// signal that arrives between a look at the stop flag and the wait makes that descriptor readable
// and thus ends the wait at once: no signal is ever slept over.
//
// Threads: one thread at a time. Ownership: the object owns its descriptor and its buffer, and
// borrows the interrupt descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <utility>

#include "core/tally.h"
#include "net/net_address_list.h"
#include "net/net_datagram_batch.h"

namespace cv::net {

class Socket {
 public:
  /// Room for the largest datagram there can be.
  struct Buffer {
    unsigned char data[65536];
    uint64_t length = 0;  // bytes received
  };

  Socket() = default;
  /// A socket that receives: open() asks the kernel for a receive buffer of `receive_buffer_bytes`
  /// (0: leaves the system's default) and says in a WARNING line when less is granted.
  explicit Socket(std::unique_ptr<Buffer> buffer, int receive_buffer_bytes = 0)
      : read_buffer(std::move(buffer)), m_receive_buffer_bytes(receive_buffer_bytes) {}
  virtual ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Binds to `port` and `address` (both host byte order; 0 for any). True at once when already
  /// open. A failure is logged; when it was the bind that failed, close() is still needed before
  /// another try.
  bool open(int port, unsigned int address);

  /// Ends every wait of read() while `descriptor` is readable (-1: none). `on_interrupted` is called
  /// on the reading thread before such a read returns; it is to make the descriptor unreadable.
  void set_interrupt(int descriptor, std::function<void()> on_interrupted);

  /// How long read() lets further datagrams gather once a wait has ended, less than a second: they then
  /// come in one batch. 0, the default, for a socket that is to answer at once.
  void set_gathering(int32_t gather_us) { m_gather_us = gather_us; }

  /// From whom datagrams are taken; empty, the default: from everybody. Before the first read().
  void set_sources(AddressList allowed) { m_allowed = std::move(allowed); }

  /// Waits for one datagram; its length in bytes, cut to `size`. 0 when interrupted, when the datagram
  /// was empty, or when all that came is refused: so the caller can look at its stop flag, however
  /// much of it comes. Any other failure means that the node has lost its ears: it is logged and
  /// ends the process with status -1.
  std::size_t read(unsigned char* buffer, std::size_t size);

  /// Whether there is a datagram to read, without waiting for one. For whoever waits for the descriptor
  /// to become readable, before the wait and after it: before, because datagrams come out of the kernel
  /// by the batch; after, because what made it readable may turn out to be none (a bad checksum), and
  /// read() would wait on. Fails as read() does.
  bool fetch();

  /// The socket's own buffer, which must be there. Receives nothing.
  Buffer& read();

  /// Sends one datagram; true also for nothing to send. A failure is logged.
  bool send(const sockaddr_in& to, const char* data, std::size_t size);

  void close();

  /// -1 while closed.
  int descriptor() const { return m_descriptor; }
  /// The port bound to, in host byte order; 0 while closed.
  uint16_t local_port() const;

  /// Datagrams that the kernel dropped since the socket was made, as far as it has told: it tells
  /// with the next datagram that it delivers. Any thread.
  uint64_t kernel_dropped() const { return m_dropped.total(); }

  /// Datagrams of sources that are not allowed. Any thread.
  uint64_t refused() const { return m_refused.total(); }

  std::unique_ptr<Buffer> read_buffer;

 private:
  bool has_unread() const { return m_batch != nullptr && !m_batch->empty(); }
  int fill_batch();
  void widen_receive_buffer() const;
  void note_dropped();
  void say_due();
  bool skip_refused();
  void say_dropped(uint64_t count) const;
  void say_refused(uint64_t count) const;
  void say_rest();
  int wait_timeout_ms() const;
  bool wait_for_data();
  void let_gather() const;
  std::size_t interrupted();
  [[noreturn]] void fail_read(int error);

  int m_receive_buffer_bytes = 0;
  int32_t m_gather_us = 0;
  int m_descriptor = -1;
  int m_interrupt_descriptor = -1;
  std::function<void()> m_on_interrupted;
  std::unique_ptr<DatagramBatch> m_batch;  // made by the first read
  Tally m_dropped;
  AddressList m_allowed;
  Tally m_refused;
};

}  // namespace cv::net
