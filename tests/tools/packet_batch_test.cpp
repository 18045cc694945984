// What the kernel may answer to a batch of datagrams, and what becomes of them.
#include "tools/load/packet_batch.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <utility>

#include "support/udp_receiver.h"

namespace {

/// The error number of a call, or 0: the kernel answers. May lower the number of messages.
std::function<int(const mmsghdr*, unsigned& count)> g_answer;
int g_calls = 0;

}  // namespace

// In place of the C library's in this executable.
extern "C" int sendmmsg(int fd, mmsghdr* messages, unsigned count, int flags) {
  ++g_calls;
  if (g_answer) {
    errno = g_answer(messages, count);
    if (errno != 0) return -1;
  }
  static const auto call = reinterpret_cast<decltype(&sendmmsg)>(dlsym(RTLD_NEXT, "sendmmsg"));
  return call(fd, messages, count, flags);
}

namespace cv::tools {
namespace {

bool is_run(const mmsghdr& message) { return message.msg_hdr.msg_iovlen > 1; }

TEST(PacketBatch, EveryAnswerOfTheKernelIsCountedAndWhatItTakesArrivesInOrder) {
  // Four runs: 3, 1, 64 (the most that a message takes) and 2 packets.
  const std::vector<std::size_t> sizes = [] {
    std::vector<std::size_t> all{40, 40, 40, 60};
    all.insert(all.end(), 66, 80);
    return all;
  }();
  bool first = true;
  const auto once = [&first](int error) {
    return [&first, error](const mmsghdr*, unsigned&) {
      return std::exchange(first, false) ? error : 0;
    };
  };
  struct Row {
    const char* what;
    std::function<int(const mmsghdr*, unsigned&)> answer;
    std::size_t refused;
    int error;
    int calls;
  };
  const Row rows[] = {
      {"the kernel takes all", nullptr, 0, 0, 1},
      {"the first message alone, each time",
       [](const mmsghdr*, unsigned& count) {
         count = 1;
         return 0;
       },
       0, 0, 4},
      {"a signal", once(EINTR), 0, 0, 2},
      {"a refusal costs the first run", once(ECONNREFUSED), 3, ECONNREFUSED, 2},
      {"no runs on the way to there: each packet by itself",
       [](const mmsghdr* messages, unsigned& count) {
         return std::any_of(messages, messages + count, &is_run) ? EIO : 0;
       },
       0, 0, 2},
      {"nor single packets", [](const mmsghdr*, unsigned&) { return EIO; }, 70, EIO, 71},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    test::UdpReceiver receiver;
    net::Socket socket;
    const sockaddr_in to{AF_INET, htons(receiver.port()), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_TRUE(socket.open(0, INADDR_LOOPBACK));
    ASSERT_EQ(connect(socket.descriptor(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    PacketBatch batch(socket.descriptor());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      batch.next().assign(sizes[i], static_cast<unsigned char>(i));
    }
    first = true;
    g_calls = 0;
    g_answer = row.answer;
    batch.flush();
    g_answer = nullptr;
    EXPECT_EQ(batch.refused(), row.refused);
    EXPECT_EQ(batch.sent(), sizes.size() - row.refused);
    EXPECT_EQ(batch.error(), row.error);
    EXPECT_EQ(g_calls, row.calls);
    std::vector<std::string> expected;
    for (std::size_t i = row.refused; i < sizes.size(); ++i) {
      expected.emplace_back(sizes[i], static_cast<char>(i));
    }
    EXPECT_EQ(receiver.texts(), expected);
  }
}

}  // namespace
}  // namespace cv::tools
