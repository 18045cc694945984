#include "net/net_socket.h"

#include <arpa/inet.h>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "log/log.h"
#include "log/log_sinks.h"

namespace cv::net {

namespace {

/// The kernel doubles it and charges a packet of 20 ms about 1300 bytes, so that half a second of a
/// thousand calls can wait; its own default holds 2 ms of them. Memory is taken as packets wait.
constexpr int receive_buffer_bytes = 32 << 20;

void widen_receive_buffer(int descriptor) {
  const auto set = [descriptor](int option) {
    return setsockopt(descriptor, SOL_SOCKET, option, &receive_buffer_bytes,
                      sizeof receive_buffer_bytes) == 0;
  };
  // Without the privilege for the first, the system's maximum (net.core.rmem_max) is the limit.
  if (!set(SO_RCVBUFFORCE)) set(SO_RCVBUF);
}

}  // namespace

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
  if (read_buffer != nullptr) widen_receive_buffer(m_descriptor);
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

std::size_t Socket::read(unsigned char* buffer, std::size_t size) {
  for (;;) {
    // Tried before waiting: under load a packet is there already, and one system call gets it.
    const ssize_t length = recv(m_descriptor, buffer, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (length >= 0) return static_cast<std::size_t>(length);
    if (errno == EINTR) return interrupted();
    if (errno != EAGAIN && errno != EWOULDBLOCK) fail_read(errno);
    if (!wait_for_data()) return interrupted();
  }
}

/// False when the wait was cut short. True does not promise a datagram: one with a bad checksum is
/// dropped only when it is received, and an error is for the receive call to tell.
bool Socket::wait_for_data() {
  pollfd waits[2] = {{m_descriptor, POLLIN, 0}, {m_interrupt_descriptor, POLLIN, 0}};
  if (poll(waits, 2, -1) < 0) {
    if (errno == EINTR) return false;
    fail_read(errno);
  }
  return waits[1].revents == 0;
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
