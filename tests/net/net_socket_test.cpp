#include "net/net_socket.h"

#include <cstring>
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
  m_sender.close();
  EXPECT_FALSE(send("text"));
  EXPECT_TRUE(m_log.has_containing("SOCKET[-1]: failed to send a data (4: "));
  EXPECT_TRUE(m_log.has_containing("), error (9): Bad file descriptor"));
}

std::size_t room_bytes(const Socket& socket) {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  EXPECT_EQ(getsockopt(socket.descriptor(), SOL_SOCKET, SO_RCVBUF, &bytes, &size), 0);
  return static_cast<std::size_t>(bytes);
}

// Nobody reads while they come. A datagram of this size is charged 1280 bytes.
TEST_F(SocketTest, ABurstWaitsInTheRoomThatWasAskedForAndStaysInOrder) {
  m_receiver.close();
  Socket receiver(std::make_unique<Socket::Buffer>(), 16 << 20);
  ASSERT_TRUE(receiver.open(0, INADDR_LOOPBACK));
  const bool granted = room_bytes(receiver) >= 2 * (16 << 20);
  EXPECT_EQ(m_log.has_containing("bytes requested, the kernel granted ("), !granted);
  const std::size_t burst = std::min<std::size_t>(10000, room_bytes(receiver) / 2560);
  const sockaddr_in to{AF_INET, htons(receiver.local_port()), {htonl(INADDR_LOOPBACK)}, {}};
  std::string packet(370, 'x');
  for (std::size_t i = 0; i < burst; ++i) {
    std::memcpy(packet.data(), &i, sizeof i);
    ASSERT_TRUE(m_sender.send(to, packet.data(), packet.size()));
  }
  unsigned char data[400];
  for (std::size_t i = 0; i < burst; ++i) {
    ASSERT_EQ(receiver.read(data, sizeof data), packet.size());
    ASSERT_EQ(std::memcmp(data, &i, sizeof i), 0) << i;
  }
  EXPECT_EQ(receiver.kernel_dropped(), 0u);
}

TEST_F(SocketTest, CountsAndSaysWhatTheKernelDrops) {
  const std::size_t sent = room_bytes(m_receiver) / 1000 + 500;
  for (std::size_t i = 0; i < sent; ++i) ASSERT_TRUE(send(std::string(370, 'x')));
  ASSERT_FALSE(receive().empty());
  // A batch is out, so the next gets in; and it tells what was lost before it.
  ASSERT_TRUE(send("last"));
  std::size_t received = 1;
  while (receive() != "last") ++received;
  EXPECT_GT(m_receiver.kernel_dropped(), 0u);
  EXPECT_EQ(received + m_receiver.kernel_dropped(), sent);
  EXPECT_TRUE(m_log.has(
      cv::log::Level::WARNING,
      "SOCKET[" + std::to_string(m_receiver.descriptor()) + "]: the kernel dropped (" +
          std::to_string(m_receiver.kernel_dropped()) + ") datagrams before they were read; (" +
          std::to_string(m_receiver.kernel_dropped()) + ") in all"));
}

// Refused ones must not keep the reader from its stop flag, however many come.
TEST_F(SocketTest, TakesDatagramsOfTheAllowedSourcesOnly) {
  std::string error;
  cv::net::AddressList allowed;
  ASSERT_TRUE(allowed.parse("127.0.0.1", error));
  m_receiver.set_sources(allowed);
  Socket stranger;
  ASSERT_TRUE(stranger.open(0, INADDR_LOOPBACK + 1));
  const sockaddr_in to{AF_INET, htons(m_receiver.local_port()), {htonl(INADDR_LOOPBACK)}, {}};
  for (const char* text : {"a", "b"}) {
    ASSERT_TRUE(stranger.send(to, "spoofed", 7) && send(text) && stranger.send(to, "more", 4));
  }
  EXPECT_EQ(receive(), "a");
  EXPECT_EQ(receive(), "b");
  EXPECT_EQ(receive(), "") << "the rest of the batch is refused";
  EXPECT_EQ(m_receiver.refused(), 4u);
  ASSERT_TRUE(send("c"));
  EXPECT_EQ(receive(), "c");
  EXPECT_TRUE(m_log.has(cv::log::Level::WARNING,
                        "SOCKET[" + std::to_string(m_receiver.descriptor()) +
                            "]: (4) datagrams refused whose sources are not allowed, the last "
                            "from [127.0.0.2]; (4) in all"));
  EXPECT_EQ(m_log.texts().size(), 1u);
}

// A signal that arrives just before the wait: its descriptor is readable already.
TEST_F(SocketTest, AnInterruptEndsTheWaitButPacketsAtHandComeFirst) {
  const int event = eventfd(1, EFD_CLOEXEC);  // for the rest of the process
  m_receiver.set_interrupt(event, [&] {
    EXPECT_TRUE(m_log.texts().empty()) << "the hook comes before the line";
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
