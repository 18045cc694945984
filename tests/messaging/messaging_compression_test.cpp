#include "messaging/messaging_compression.h"

#include <algorithm>
#include <gtest/gtest.h>
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

TEST(CompressBounded, HoldsAtEverySizeAroundTheBound) {
  // Equal bytes: where zlib's own output crosses the ratio of ten, and well past it.
  for (const std::size_t size : {0, 1, 100, 300, 500, 700, 100000})
    expect_received(Bytes(size, 'x'));
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

}  // namespace
