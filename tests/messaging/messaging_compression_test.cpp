#include "messaging/messaging_compression.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>
#include <zlib.h>

namespace {

using Bytes = std::vector<unsigned char>;

/// As a receiver does it: room for ten times the body and not a byte more.
void expect_received(const Bytes& plain) {
  SCOPED_TRACE(plain.size());
  const Bytes body = cv::messaging::compress_bounded(plain);
  uLongf size = 10 * body.size();
  Bytes received(size);
  ASSERT_EQ(uncompress(received.data(), &size, body.data(), body.size()), Z_OK);
  received.resize(size);
  EXPECT_EQ(received, plain);

  // Padding is paid only where it is needed, and then to the block of five bytes.
  uLongf default_size = compressBound(plain.size());
  Bytes by_default(default_size);
  compress(by_default.data(), &default_size, plain.data(), plain.size());
  EXPECT_LE(body.size(), std::max(default_size, (plain.size() + 9) / 10 + 10));
}

TEST(CompressBounded, EveryBodyIsReceivedHoweverRegular) {
  const std::string entry = R"({"rule_id":1,"sample_id":7,"threshold":5.0,"event_object":{}},)";
  for (const std::size_t times : {1, 2, 10, 50, 1000, 20000}) {
    Bytes plain;
    for (std::size_t i = 0; i < times; ++i) plain.insert(plain.end(), entry.begin(), entry.end());
    expect_received(plain);
  }
}

TEST(CompressBounded, HoldsAtEverySizeAroundTheBound) {
  // Equal bytes: where zlib's own output crosses the ratio of ten, and well past it.
  for (std::size_t size = 0; size < 700; ++size) expect_received(Bytes(size, 'x'));
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

TEST(CompressBounded, RegularAndRandomPartsInAnyOrder) {
  std::mt19937 random(11);
  for (int round = 0; round < 200; ++round) {
    Bytes plain;
    for (int part = 0; part < 4; ++part) {
      const bool regular = random() % 2 == 0;
      for (std::size_t i = random() % 3000; i > 0; --i) {
        plain.push_back(static_cast<unsigned char>(regular ? part : random() & 0xFF));
      }
    }
    expect_received(plain);
  }
}

}  // namespace
