// A receiver of datagrams on a free port of the loopback interface. Users link cv_net.
#pragma once

#include <stdexcept>
#include <string>
#include <sys/socket.h>
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

  /// Waits until a datagram contains `part`; the latest such, or an empty text after 30 s.
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

/// A UDP port that was free a moment ago.
inline uint16_t free_udp_port() { return UdpReceiver().port(); }

}  // namespace cv::test
