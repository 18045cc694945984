// A receiver of datagrams on a free port of the loopback interface. Users link cv_net.
#pragma once

#include <cstddef>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "net/net_socket.h"
#include "support/eventually.h"

namespace cv::test {

class UdpReceiver {
 public:
  UdpReceiver() {
    if (!m_socket.open(0, INADDR_LOOPBACK)) throw std::runtime_error("no loopback socket");
  }

  uint16_t port() const { return m_socket.local_port(); }

  /// Everything received so far, one text a datagram. On the loopback interface a datagram has
  /// arrived when its send returns.
  const std::vector<std::string>& texts() {
    char datagram[65536];
    for (ssize_t size;
         (size = recv(m_socket.descriptor(), datagram, sizeof datagram, MSG_DONTWAIT)) >= 0;) {
      m_texts.emplace_back(datagram, static_cast<std::size_t>(size));
    }
    return m_texts;
  }

  /// The same, and forgets it.
  std::vector<std::string> take() {
    texts();
    return std::exchange(m_texts, {});
  }

  /// Waits until a datagram contains `part`; the latest such, or an empty text after 90 s.
  std::string wait_for(const std::string& part) {
    std::string found;
    eventually([&] {
      for (const std::string& text : texts()) {
        if (text.find(part) != text.npos) found = text;
      }
      return !found.empty();
    });
    return found;
  }

 private:
  net::Socket m_socket;
  std::vector<std::string> m_texts;
};

/// A UDP port for a process that binds it later: none of those that the kernel gives to sockets which
/// ask for any, and none that this process or another test has got here or from
/// scripts/running_site.py: a socket of the port's name claims it until this process ends.
inline uint16_t free_udp_port() {
  std::random_device random;
  for (;;) {
    const auto port = std::uniform_int_distribution<uint16_t>(10000, 32767)(random);
    const std::string name = "corvanth-test-port-" + std::to_string(port);
    sockaddr_un address{AF_UNIX, {}};
    name.copy(address.sun_path + 1, name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const int claim = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (claim < 0) throw std::runtime_error("no socket");
    if (bind(claim, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
        net::Socket().open(port, INADDR_ANY)) {
      return port;
    }
    close(claim);
  }
}

}  // namespace cv::test
