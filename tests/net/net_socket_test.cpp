#include "net/net_socket.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

#include "log/log_sinks.h"
#include "support/log_capture.h"

namespace {

using cv::net::Socket;

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

class SocketTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m_receiver.open(0, INADDR_LOOPBACK));
    ASSERT_TRUE(m_sender.open(0, INADDR_LOOPBACK));
    m_event = eventfd(0, EFD_NONBLOCK);
  }
  void TearDown() override { close(m_event); }

  std::string tag() const { return "SOCKET[" + std::to_string(m_receiver.descriptor()) + "]: "; }
  bool send(const std::string& data) {
    return m_sender.send(loopback(m_receiver.local_port()), data.data(), data.size());
  }
  std::string receive() {
    Socket::Buffer& buffer = m_receiver.read();
    buffer.length = m_receiver.read(buffer.data, sizeof buffer.data);
    return std::string(reinterpret_cast<const char*>(buffer.data), buffer.length);
  }

  Socket m_receiver{std::make_unique<Socket::Buffer>()};
  Socket m_sender;
  int m_event = -1;
};

TEST_F(SocketTest, CarriesDatagramsWholeInOrderAndCutToTheBuffer) {
  EXPECT_TRUE(send("first"));
  EXPECT_TRUE(send(std::string(60000, 'x')));
  EXPECT_TRUE(send("third"));
  EXPECT_EQ(receive(), "first");
  EXPECT_EQ(receive(), std::string(60000, 'x'));
  unsigned char small[2];
  EXPECT_EQ(m_receiver.read(small, sizeof small), 2u);
}

TEST_F(SocketTest, ReadSleepsUntilADatagramComes) {
  std::thread late([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    send("late");
  });
  EXPECT_EQ(receive(), "late");
  late.join();
}

// The signal that arrives just before the wait: its descriptor is readable already.
TEST_F(SocketTest, AnInterruptRaisedBeforeTheWaitEndsItAndLosesNoPacket) {
  cv::test::LogCapture log;
  int calls = 0;
  m_receiver.set_interrupt(m_event, [&] {
    ++calls;
    EXPECT_TRUE(log.lines().empty()) << "the hook comes before the line";
    eventfd_t value;
    eventfd_read(m_event, &value);
  });
  eventfd_write(m_event, 1);
  EXPECT_EQ(receive(), "");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(log.texts(),
            std::vector<std::string>{"INFO net_socket " + tag() + "system interrupted call"});
  send("next");
  EXPECT_EQ(receive(), "next");
  EXPECT_EQ(calls, 1);
}

TEST_F(SocketTest, PacketsAtHandAreReadBeforeAnInterruptIsLookedAt) {
  m_receiver.set_interrupt(m_event, nullptr);
  eventfd_write(m_event, 1);
  send("packet");
  EXPECT_EQ(receive(), "packet");
  EXPECT_EQ(receive(), "");
}

TEST_F(SocketTest, ASignalEndsTheWaitWithoutAnInterruptDescriptor) {
  static std::atomic<bool> handled;
  handled = false;
  struct sigaction action {
  }, previous{};
  action.sa_handler = [](int) { handled = true; };
  sigaction(SIGUSR1, &action, &previous);
  const pthread_t reader = pthread_self();
  std::atomic<bool> returned{false};
  std::thread sender([&] {
    // Again and again: one alone might arrive before the wait, which only the descriptor would cover.
    while (!returned) {
      pthread_kill(reader, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  EXPECT_EQ(receive(), "");
  returned = true;
  sender.join();
  EXPECT_TRUE(handled);
  sigaction(SIGUSR1, &previous, nullptr);
}

TEST_F(SocketTest, OpensOnceAndTellsWhyItCannot) {
  const uint16_t port = m_receiver.local_port();
  EXPECT_TRUE(m_receiver.open(port == 1 ? 2 : 1, INADDR_LOOPBACK));
  EXPECT_EQ(m_receiver.local_port(), port) << "an open socket is not bound again";

  cv::test::LogCapture log;
  Socket second;
  EXPECT_FALSE(second.open(port, INADDR_LOOPBACK));
  EXPECT_EQ(log.texts(), std::vector<std::string>{
                             "ERROR net_socket SOCKET[" + std::to_string(second.descriptor()) +
                             "]: failed to bind a socket, error (" + std::to_string(EADDRINUSE) +
                             "): " + strerror(EADDRINUSE)});
  second.close();
  m_receiver.close();
  EXPECT_EQ(m_receiver.descriptor(), -1);
  EXPECT_EQ(m_receiver.local_port(), 0);
  EXPECT_TRUE(second.open(port, INADDR_LOOPBACK));
}

TEST_F(SocketTest, NothingToSendIsSentAndAFailureIsLogged) {
  cv::test::LogCapture log;
  Socket closed;
  EXPECT_TRUE(closed.send(loopback(9), nullptr, 5));
  EXPECT_TRUE(closed.send(loopback(9), "x", 0));
  EXPECT_TRUE(log.lines().empty());
  const char* data = "text";
  EXPECT_FALSE(closed.send(loopback(9), data, 4));
  EXPECT_EQ(log.texts(), std::vector<std::string>{
                             "ERROR net_socket SOCKET[-1]: failed to send a data (4: " +
                             std::to_string(reinterpret_cast<uintptr_t>(data)) + "), error (" +
                             std::to_string(EBADF) + "): " + strerror(EBADF)});
}

TEST_F(SocketTest, ABrokenReceivingSocketEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        cv::log::open_stdlog();
        close(m_receiver.descriptor());
        receive();
      },
      testing::ExitedWithCode(255), "failed to read a data, error \\(9\\)");
}

}  // namespace
