// A receiver of reports on a free port of the loopback interface.
#pragma once

#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "net/net_socket.h"

namespace cv::test {

class UdpReceiver {
 public:
  UdpReceiver() {
    if (!m_socket.open(0, INADDR_LOOPBACK)) throw std::runtime_error("no loopback socket");
  }

  uint16_t port() const { return m_socket.local_port(); }

  /// What has arrived so far. On the loopback interface a datagram has arrived when its send returns.
  std::vector<std::string> received() {
    std::vector<std::string> texts;
    std::string buffer(65536, '\0');
    for (;;) {
      const ssize_t size = recv(m_socket.descriptor(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (size < 0) return texts;
      texts.push_back(buffer.substr(0, static_cast<std::size_t>(size)));
    }
  }

 private:
  net::Socket m_socket;
};

}  // namespace cv::test
