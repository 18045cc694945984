// Datagrams, and what the kernel may answer to an open, a receive, a wait or a send, one error at a time
// and for ever.
#include "net/net_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "log/log_sinks.h"
#include "support/log_capture.h"

namespace {

/// What a system call answers in place of the kernel.
struct Scripted {
  int error = 0;  // 0: the kernel answers
  int times = 0;  // how often the error is given
  int calls = 0;

  bool fails() {
    ++calls;
    if (error == 0 || times == 0) return false;
    --times;
    errno = error;
    return true;
  }
};

Scripted g_create, g_receive, g_wait, g_send;
std::function<void()> g_during_pause;  // in place of the pause

/// What the script says, or what the C library's own function of this name answers.
template <typename Result, typename... Arguments>
Result answer(Scripted& script, const char* name, Arguments... arguments) {
  if (script.fails()) return -1;
  return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

// In place of the C library's in this executable.
extern "C" int socket(int domain, int type, int protocol) {
  return answer<int>(g_create, "socket", domain, type, protocol);
}
extern "C" int recvmmsg(int fd, mmsghdr* messages, unsigned count, int flags, timespec* timeout) {
  return answer<int>(g_receive, "recvmmsg", fd, messages, count, flags, timeout);
}
extern "C" int poll(pollfd* waits, nfds_t count, int timeout) {
  return answer<int>(g_wait, "poll", waits, count, timeout);
}
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
  Scripted nothing;
  if (g_during_pause) return g_during_pause(), 0;
  return answer<int>(nothing, "clock_nanosleep", clock, flags, time, left);
}
extern "C" ssize_t sendto(int fd, const void* data, size_t size, int flags, const sockaddr* to,
                          socklen_t length) {
  return answer<ssize_t>(g_send, "sendto", fd, data, size, flags, to, length);
}

namespace {

using cv::net::Socket;

struct SocketTest : testing::Test {
  SocketTest() {
    g_create = g_receive = g_wait = g_send = {};
    EXPECT_TRUE(m_receiver.open(0, INADDR_LOOPBACK) && m_sender.open(0, INADDR_LOOPBACK));
    m_to = {AF_INET, htons(m_receiver.local_port()), {htonl(INADDR_LOOPBACK)}, {}};
  }
  bool send(const std::string& data) { return m_sender.send(m_to, data.data(), data.size()); }
  std::string receive() {
    unsigned char* data = m_receiver.read().data;
    return std::string(data, data + m_receiver.read(data, sizeof(Socket::Buffer::data)));
  }
  std::string name() const { return "SOCKET[" + std::to_string(m_receiver.descriptor()) + "]: "; }

  cv::test::LogCapture m_log;
  Socket m_receiver{std::make_unique<Socket::Buffer>()};
  Socket m_sender;
  sockaddr_in m_to{};
};

TEST_F(SocketTest, AnOpenThatFailsIsOneLineAndAnotherOneOfAnOpenSocketNothing) {
  const uint16_t port = m_sender.local_port();
  g_create = {EMFILE, 1, 0};
  EXPECT_TRUE(m_sender.open(m_receiver.local_port(), INADDR_LOOPBACK));
  EXPECT_EQ(g_create.calls, 0);

  Socket third;
  EXPECT_FALSE(third.open(0, INADDR_LOOPBACK));
  EXPECT_EQ(third.descriptor(), -1);
  EXPECT_TRUE(m_log.has(cv::log::Level::ERROR,
                        "SOCKET[ ]: failed to create a socket, error (24): Too many open files"));
  EXPECT_FALSE(third.open(port, INADDR_LOOPBACK));
  EXPECT_TRUE(m_log.has(cv::log::Level::ERROR,
                        "SOCKET[" + std::to_string(third.descriptor()) +
                            "]: failed to bind a socket, error (98): Address already in use"));
  third.close();
  EXPECT_TRUE(third.open(0, INADDR_LOOPBACK));
  EXPECT_EQ(m_log.texts().size(), 2u);
}

TEST_F(SocketTest, AReceiveGoesOnAfterAnInterruptionAndEndsTheProcessAfterAnyOtherError) {
  for (Scripted* call : {&g_receive, &g_wait}) {
    *call = {EINTR, 1, 0};
    EXPECT_EQ(receive(), "") << "for a look at the stop flag";
    EXPECT_TRUE(m_log.has_containing("]: system interrupted call"));
    m_log.clear();
    EXPECT_TRUE(send("packet"));
    EXPECT_EQ(receive(), "packet");
  }
  g_receive = {EAGAIN, 3, 0};  // readable, and then not: a datagram with a bad checksum
  EXPECT_TRUE(send("packet"));
  EXPECT_EQ(receive(), "packet");
  EXPECT_EQ(g_receive.calls, 4);
  g_receive = g_wait = {};

  cv::log::open_stdlog();
  for (const int error : {ECONNREFUSED, ENOBUFS, ENOMEM, EMSGSIZE, ENETUNREACH, ENETDOWN,
                          EHOSTUNREACH, EPERM, EBADF, ENOTCONN, ENOTSOCK, EFAULT, EINVAL, EIO}) {
    const std::string line = "failed to read a data, error ." + std::to_string(error) + ".: ";
    for (Scripted* call : {&g_receive, &g_wait}) {
      *call = {error, -1, 0};
      EXPECT_EXIT(receive(), testing::ExitedWithCode(255), line + strerror(error));
      *call = {};
    }
  }
}

TEST_F(SocketTest, ASendThatFailsIsOneCallOneLineAndTheNextOneWorks) {
  EXPECT_TRUE(m_sender.send(m_to, nullptr, 5) && m_sender.send(m_to, "report", 0));
  EXPECT_EQ(g_send.calls, 0) << "nothing to send";
  for (const int error : {ECONNREFUSED, ENOBUFS, ENOMEM, EMSGSIZE, ENETUNREACH, ENETDOWN,
                          EHOSTUNREACH, EPERM, EBADF, ENOTCONN, EAGAIN, EINTR, EACCES, EINVAL}) {
    m_log.clear();
    g_send = {error, -1, 0};
    EXPECT_FALSE(send("report"));
    EXPECT_EQ(g_send.calls, 1) << "nobody tries a persistent error again and again";
    EXPECT_EQ(m_log.texts().size(), 1u);
    EXPECT_TRUE(
        m_log.has_containing("), error (" + std::to_string(error) + "): " + strerror(error)));
    g_send = {};
    EXPECT_TRUE(send("next"));
    EXPECT_EQ(receive(), "next");
  }
  EXPECT_FALSE(send(std::string(70000, 'x'))) << "more than a datagram holds";
  EXPECT_TRUE(m_log.has_containing("), error (90): Message too long"));
}

TEST_F(SocketTest, AFetchTakesABatchAndNeverWaits) {
  EXPECT_FALSE(m_receiver.fetch());
  const std::string long_one(60000, 'x');
  EXPECT_TRUE(send("a") && send(long_one) && send("c"));
  g_receive = {EINTR, 1, 0};
  EXPECT_FALSE(m_receiver.fetch());
  g_receive = {};
  std::string received;
  while (m_receiver.fetch()) received += receive();
  EXPECT_EQ(received, "a" + long_one + "c");
  EXPECT_EQ(g_receive.calls, 2) << "one for the three, one for what there is not";
  EXPECT_EQ(g_wait.calls, 0);
}

TEST_F(SocketTest, PacketsThatGatherComeInOneBatch) {
  m_receiver.set_gathering(500);
  g_during_pause = [this] {
    for (int i = 1; i < 10; ++i) EXPECT_TRUE(send("packet"));
  };
  EXPECT_TRUE(send("packet"));
  g_receive = {EAGAIN, 1, 0};  // it comes just after the first look
  for (int i = 0; i < 10; ++i) EXPECT_EQ(receive(), "packet");
  g_during_pause = nullptr;
  EXPECT_EQ(g_wait.calls, 1);
  EXPECT_EQ(g_receive.calls, 2);
}

std::size_t room_bytes(const Socket& socket) {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  EXPECT_EQ(getsockopt(socket.descriptor(), SOL_SOCKET, SO_RCVBUF, &bytes, &size), 0);
  return static_cast<std::size_t>(bytes);
}

TEST_F(SocketTest, AsksForRoomAndSaysWhenThereIsLess) {
  Socket receiver(std::make_unique<Socket::Buffer>(), 16 << 20);
  ASSERT_TRUE(receiver.open(0, INADDR_LOOPBACK));
  EXPECT_GT(room_bytes(receiver), room_bytes(m_receiver));
  EXPECT_EQ(m_log.has_containing("bytes requested, the kernel granted ("),
            room_bytes(receiver) < 2 * (16 << 20));
}

// What a burst fills the room with comes in order, and behind it what was too much is told.
TEST_F(SocketTest, CountsAndSaysWhatTheKernelDrops) {
  const auto numbered = [](std::size_t number) {
    return std::string(370, 'x').append(std::to_string(number));
  };
  const std::size_t sent = room_bytes(m_receiver) / 1000 + 500;
  for (std::size_t i = 0; i < sent; ++i) ASSERT_TRUE(send(numbered(i)));
  ASSERT_EQ(receive(), numbered(0));
  // A batch is out, so the next gets in; and it tells what was lost before it.
  ASSERT_TRUE(send("last"));
  std::size_t received = 1;
  for (std::string text = receive(); text != "last"; text = receive()) {
    ASSERT_EQ(text, numbered(received++));
  }
  const uint64_t dropped = m_receiver.kernel_dropped();
  EXPECT_GT(dropped, 0u);
  EXPECT_EQ(received + dropped, sent);
  const std::string count = std::to_string(dropped);
  const std::string said =
      "the kernel dropped (" + count + ") datagrams before they were read; (" + count + ") in all";
  EXPECT_TRUE(m_log.has(cv::log::Level::WARNING, name() + said));
}

// Refused ones must not keep the reader from its stop flag, however many come.
TEST_F(SocketTest, TakesDatagramsOfTheAllowedSourcesOnly) {
  std::string error;
  cv::net::AddressList allowed;
  ASSERT_TRUE(allowed.parse("127.0.0.1", error));
  m_receiver.set_sources(allowed);
  Socket stranger;
  ASSERT_TRUE(stranger.open(0, INADDR_LOOPBACK + 1));
  for (const char* text : {"a", "b"}) {
    ASSERT_TRUE(stranger.send(m_to, "spoofed", 7) && send(text) && stranger.send(m_to, "more", 4));
  }
  EXPECT_EQ(receive(), "a");
  EXPECT_EQ(receive(), "b");
  EXPECT_EQ(receive(), "") << "the rest of the batch is refused";
  EXPECT_EQ(m_receiver.refused(), 4u);
  ASSERT_TRUE(send("c"));
  EXPECT_EQ(receive(), "c");
  EXPECT_TRUE(m_log.has(cv::log::Level::WARNING,
                        name() + "(4) datagrams refused whose sources are not allowed, the last "
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
  EXPECT_TRUE(m_log.has(cv::log::Level::INFO, name() + "system interrupted call"));
}

}  // namespace
