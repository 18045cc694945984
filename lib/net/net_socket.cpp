#include "net/net_socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/clock.h"
#include "log/log.h"
#include "log/log_syslog_thread.h"

namespace cv::net {

Socket::~Socket() { Socket::close(); }

bool Socket::open(int port, unsigned int address) {
  if (m_descriptor >= 0) return true;
  m_descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  if (m_descriptor < 0) {
    const int error = errno;
    CV_LOG(ErrorMessage) << "SOCKET[ ]: failed to create a socket, error (" << error
                         << "): " << strerror(error);
    return false;
  }
  if (m_receive_buffer_bytes > 0) widen_receive_buffer();
  const int count_drops = 1;
  setsockopt(m_descriptor, SOL_SOCKET, SO_RXQ_OVFL, &count_drops, sizeof count_drops);
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(static_cast<uint16_t>(port));
  local.sin_addr.s_addr = htonl(address);
  if (bind(m_descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    const int error = errno;
    CV_LOG(ErrorMessage) << "SOCKET[" << m_descriptor << "]: failed to bind a socket, error ("
                         << error << "): " << strerror(error);
    return false;
  }
  return true;
}

void Socket::set_interrupt(int descriptor, std::function<void()> on_interrupted) {
  m_interrupt_descriptor = descriptor;
  m_on_interrupted = std::move(on_interrupted);
}

void Socket::widen_receive_buffer() const {
  const auto set = [this](int option) {
    return setsockopt(m_descriptor, SOL_SOCKET, option, &m_receive_buffer_bytes,
                      sizeof m_receive_buffer_bytes) == 0;
  };
  // Without the privilege for the first, the system's maximum (net.core.rmem_max) is the limit.
  if (!set(SO_RCVBUFFORCE)) set(SO_RCVBUF);
  int granted_bytes = 0;
  socklen_t length = sizeof granted_bytes;
  getsockopt(m_descriptor, SOL_SOCKET, SO_RCVBUF, &granted_bytes, &length);
  granted_bytes /= 2;  // the kernel doubles what it is asked for, for its own bookkeeping
  if (granted_bytes >= m_receive_buffer_bytes) return;
  CV_LOG(WarningMessage) << "SOCKET[" << m_descriptor << "]: receive buffer of ("
                         << m_receive_buffer_bytes << ") bytes requested, the kernel granted ("
                         << granted_bytes << ")";
}

std::size_t Socket::read(unsigned char* buffer, std::size_t size) {
  while (!has_unread()) {
    // Tried before waiting: under load packets are there already, and one system call gets them.
    const int error = fill_batch();
    if (error == EINTR) return interrupted();
    if (error == 0) continue;
    if (!wait_for_data()) return interrupted();
    let_gather();
  }
  if (!m_allowed.empty() && !skip_refused()) return 0;
  return m_batch->take(buffer, size);
}

bool Socket::fetch() {
  if (!has_unread()) fill_batch();
  return has_unread();
}

/// 0, EINTR, or EAGAIN when nothing is there; any other error does not return.
int Socket::fill_batch() {
  if (m_batch == nullptr) m_batch = std::make_unique<DatagramBatch>();
  const int error = m_batch->fill(m_descriptor);
  note_dropped();
  if (error != 0 && error != EINTR && error != EAGAIN) fail_read(error);
  return error;
}

void Socket::note_dropped() {
  m_dropped.add(m_batch->take_dropped());
  say_due();
}

void Socket::say_due() {
  if (m_dropped.unsaid() + m_refused.unsaid() == 0) return;  // the usual case needs no clock
  const int64_t now_us = steady_clock().now_us();
  if (const auto count = m_dropped.take(now_us)) say_dropped(*count);
  if (const auto count = m_refused.take(now_us)) say_refused(*count);
}

/// False when nothing is left of the batch.
bool Socket::skip_refused() {
  m_refused.add(m_batch->skip_others(m_allowed));
  return !m_batch->empty();
}

void Socket::say_dropped(uint64_t count) const {
  CV_LOG(WarningMessage) << "SOCKET[" << m_descriptor << "]: the kernel dropped (" << count
                         << ") datagrams before they were read; (" << m_dropped.total()
                         << ") in all";
}

void Socket::say_refused(uint64_t count) const {
  char source[INET_ADDRSTRLEN] = {};
  const in_addr address{m_batch->last_skipped_source()};
  inet_ntop(AF_INET, &address, source, sizeof source);
  CV_LOG(WarningMessage) << "SOCKET[" << m_descriptor << "]: (" << count
                         << ") datagrams refused whose sources are not allowed, the last from ["
                         << source << "]; (" << m_refused.total() << ") in all";
}

void Socket::say_rest() {
  if (const uint64_t count = m_dropped.take_rest()) say_dropped(count);
  if (const uint64_t count = m_refused.take_rest()) say_refused(count);
}

int Socket::wait_timeout_ms() const {
  int64_t due_us = INT64_MAX;
  if (m_dropped.unsaid() != 0) due_us = m_dropped.due_us();
  if (m_refused.unsaid() != 0) due_us = std::min(due_us, m_refused.due_us());
  if (due_us == INT64_MAX) return -1;
  const int64_t left_us = due_us - steady_clock().now_us();
  return static_cast<int>(std::max<int64_t>(left_us, 0) / 1000) + 1;
}

/// False when the wait was cut short. True does not promise a datagram: one with a bad checksum is
/// dropped only when it is received, and an error is for the receive call to tell.
bool Socket::wait_for_data() {
  pollfd waits[2] = {{m_descriptor, POLLIN, 0}, {m_interrupt_descriptor, POLLIN, 0}};
  if (poll(waits, 2, wait_timeout_ms()) < 0) {
    if (errno == EINTR) return false;
    fail_read(errno);
  }
  return waits[1].revents == 0;
}

// A busy source sends a packet every few microseconds. Woken by the first, a thread would take it
// alone and wait again: most of its time would go into waking up.
void Socket::let_gather() const {
  if (m_gather_us == 0) return;
  const timespec pause{0, 1000L * m_gather_us};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
}

std::size_t Socket::interrupted() {
  if (m_on_interrupted) m_on_interrupted();
  CV_LOG(InfoMessage) << "SOCKET[" << m_descriptor << "]: system interrupted call";
  return 0;
}

void Socket::fail_read(int error) {
  CV_LOG(ErrorMessage) << "SOCKET[" << m_descriptor << "]: failed to read a data, error (" << error
                       << "): " << strerror(error);
  close();
  log::SyslogThread::instance().flush();
  // Not exit(): other threads still use the objects that static destructors would take from them.
  std::_Exit(-1);
}

Socket::Buffer& Socket::read() {
  assert(read_buffer != nullptr);
  return *read_buffer;
}

bool Socket::send(const sockaddr_in& to, const char* data, std::size_t size) {
  if (data == nullptr) return true;
  std::size_t sent = 0;
  while (sent < size) {
    const ssize_t result = sendto(m_descriptor, data + sent, size - sent, 0,
                                  reinterpret_cast<const sockaddr*>(&to), sizeof to);
    if (result < 0) {
      const int error = errno;
      CV_LOG(ErrorMessage) << "SOCKET[" << m_descriptor << "]: failed to send a data (" << size
                           << ": " << reinterpret_cast<uintptr_t>(data) << "), error (" << error
                           << "): " << strerror(error);
      return false;
    }
    sent += static_cast<std::size_t>(result);
  }
  return true;
}

void Socket::close() {
  if (m_descriptor < 0) return;
  say_rest();
  m_batch.reset();
  shutdown(m_descriptor, SHUT_RDWR);
  ::close(m_descriptor);
  m_descriptor = -1;
}

uint16_t Socket::local_port() const {
  sockaddr_in local{};
  socklen_t length = sizeof local;
  if (getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&local), &length) != 0) return 0;
  return ntohs(local.sin_port);
}

}  // namespace cv::net
