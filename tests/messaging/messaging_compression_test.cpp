#include "messaging/messaging_compression.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>
#include <zlib.h>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes repeated(const std::string& text, std::size_t times) {
  Bytes out;
  for (std::size_t i = 0; i < times; ++i) out.insert(out.end(), text.begin(), text.end());
  return out;
}

std::size_t default_size(const Bytes& plain) {
  uLongf size = compressBound(plain.size());
  Bytes out(size);
  compress(out.data(), &size, plain.data(), plain.size());
  return size;
}

/// As a receiver does it: room for ten times the body and not a byte more.
void expect_received(const Bytes& plain) {
  const Bytes body = cv::messaging::compress_bounded(plain);
  uLongf size = 10 * body.size();
  Bytes received(size);
  ASSERT_EQ(uncompress(received.data(), &size, body.data(), body.size()), Z_OK);
  received.resize(size);
  EXPECT_EQ(received, plain);
  // Padding is paid only where it is needed, and then to the block of five bytes.
  EXPECT_LE(body.size(), std::max(default_size(plain), (plain.size() + 9) / 10 + 10));
}

TEST(CompressBounded, EveryBodyIsReceivedHoweverRegular) {
  const std::string entry = R"({"rule_id":1,"sample_id":7,"threshold":5.0,"event_object":{}},)";
  for (const std::size_t times : {0, 1, 2, 10, 50, 1000, 20000}) {
    SCOPED_TRACE(times);
    expect_received(repeated(entry, times));
    expect_received(repeated("a", times));
    expect_received(repeated("abcdefghij\n", 3 * times));
  }
}

TEST(CompressBounded, HoldsAtEverySizeAroundTheBound) {
  // Equal bytes: where zlib's own output crosses the ratio of ten, and well past it.
  for (std::size_t size = 0; size < 700; ++size) {
    SCOPED_TRACE(size);
    expect_received(Bytes(size, 'x'));
  }
  // The plain size is exactly ten times the body for some of these: the receiver's buffer is then
  // full before the stream's last blocks are read.
  std::size_t exact = 0;
  for (std::size_t size = 2000; size < 2100; ++size) {
    const Bytes plain(size, 'y');
    expect_received(plain);
    exact += cv::messaging::compress_bounded(plain).size() * 10 == size;
  }
  EXPECT_GT(exact, 0u);
}

TEST(CompressBounded, LeavesAloneWhatZlibDoesWell) {
  std::mt19937 random(7);
  for (const int alphabet : {2, 16, 64, 256}) {
    Bytes plain(5000);
    std::generate(plain.begin(), plain.end(),
                  [&] { return static_cast<unsigned char>(random() % alphabet); });
    SCOPED_TRACE(alphabet);
    expect_received(plain);
    EXPECT_EQ(cv::messaging::compress_bounded(plain).size(), default_size(plain));
  }
}

TEST(CompressBounded, RegularAndRandomPartsInAnyOrder) {
  std::mt19937 random(11);
  for (int round = 0; round < 200; ++round) {
    Bytes plain;
    for (int part = 0; part < 4; ++part) {
      const std::size_t length = random() % 3000;
      const bool regular = random() % 2 == 0;
      for (std::size_t i = 0; i < length; ++i) {
        plain.push_back(static_cast<unsigned char>(regular ? part : random() & 0xFF));
      }
    }
    SCOPED_TRACE(round);
    expect_received(plain);
  }
}

}  // namespace
