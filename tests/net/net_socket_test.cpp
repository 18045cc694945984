#include "net/net_socket.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "log/log_sinks.h"
#include "support/log_capture.h"

namespace {

using cv::net::Socket;

struct SocketTest : testing::Test {
  SocketTest() {
    EXPECT_TRUE(m_receiver.open(0, INADDR_LOOPBACK) && m_sender.open(0, INADDR_LOOPBACK));
  }
  bool send(const std::string& data) {
    const sockaddr_in to{AF_INET, htons(m_receiver.local_port()), {htonl(INADDR_LOOPBACK)}, {}};
    return m_sender.send(to, data.data(), data.size());
  }
  std::string receive() {
    unsigned char* data = m_receiver.read().data;
    return std::string(data, data + m_receiver.read(data, sizeof(Socket::Buffer::data)));
  }

  cv::test::LogCapture m_log;
  Socket m_receiver{std::make_unique<Socket::Buffer>()};
  Socket m_sender;
};

TEST_F(SocketTest, CarriesDatagramsWholeAndInOrderAndLogsWhatItCannotSend) {
  EXPECT_TRUE(send("first") && send(std::string(60000, 'x')));
  EXPECT_EQ(receive(), "first");
  EXPECT_EQ(receive(), std::string(60000, 'x'));
  int room_bytes[2] = {};
  socklen_t size = sizeof room_bytes[0];
  getsockopt(m_receiver.descriptor(), SOL_SOCKET, SO_RCVBUF, &room_bytes[0], &size);
  getsockopt(m_sender.descriptor(), SOL_SOCKET, SO_RCVBUF, &room_bytes[1], &size);
  EXPECT_GT(room_bytes[0], room_bytes[1]) << "a receiver gets more than the default";
  m_sender.close();
  EXPECT_FALSE(send("text"));
  EXPECT_TRUE(m_log.has_containing("SOCKET[-1]: failed to send a data (4: "));
  EXPECT_TRUE(m_log.has_containing("), error (9): Bad file descriptor"));
}

// A signal that arrives just before the wait: its descriptor is readable already.
TEST_F(SocketTest, AnInterruptEndsTheWaitButPacketsAtHandComeFirst) {
  const int event = eventfd(1, EFD_CLOEXEC);  // for the rest of the process
  m_receiver.set_interrupt(event, [&] {
    EXPECT_TRUE(m_log.lines().empty()) << "the hook comes before the line";
    eventfd_t value;
    eventfd_read(event, &value);
  });
  EXPECT_TRUE(send("packet"));
  EXPECT_EQ(receive(), "packet");
  EXPECT_EQ(receive(), "");
  const std::string socket = "SOCKET[" + std::to_string(m_receiver.descriptor()) + "]: ";
  EXPECT_TRUE(m_log.has(cv::log::Level::INFO, socket + "system interrupted call"));
}

TEST_F(SocketTest, ABrokenReceivingSocketEndsTheProcess) {
  cv::log::open_stdlog();
  EXPECT_EXIT((close(m_receiver.descriptor()), receive()), testing::ExitedWithCode(255),
              "failed to read a data, error .9.");
}

}  // namespace
