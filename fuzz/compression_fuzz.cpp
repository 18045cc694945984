// Message bodies in both directions: what the node inflates is what zlib, asked piece by piece, makes of
// the same bytes, and never more than ten times their size; what is compressed here can be inflated.
#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <zlib.h>

#include "fuzzing.h"
#include "messaging/messaging_compression.h"
#include "messaging/messaging_message_broker.h"

namespace cv::fuzz {
namespace {

using messaging::MessageBroker;
using Buffer = std::unique_ptr<unsigned char, decltype(&std::free)>;

/// The plain bytes of a whole stream of at most `most` bytes.
std::optional<Bytes> inflated(const Bytes& body, std::size_t most) {
  z_stream stream{};
  FUZZ_CHECK(inflateInit(&stream) == Z_OK);
  stream.next_in = const_cast<unsigned char*>(body.data());
  stream.avail_in = static_cast<uInt>(body.size());
  Bytes plain;
  int status = Z_OK;
  while (status == Z_OK && plain.size() <= most) {
    unsigned char piece[100];
    stream.next_out = piece;
    stream.avail_out = sizeof piece;
    status = inflate(&stream, Z_NO_FLUSH);
    plain.insert(plain.end(), piece, stream.next_out);
  }
  inflateEnd(&stream);
  if (status != Z_STREAM_END || plain.size() > most) return std::nullopt;
  return plain;
}

std::optional<Bytes> by_broker(const Bytes& body,
                               unsigned char* (*convert)(const unsigned char*, size_t&)) {
  size_t size = body.size();
  const Buffer converted(convert(body.data(), size), &std::free);
  if (!converted) return std::nullopt;
  return Bytes(converted.get(), converted.get() + size);
}

void inflate_any(const Bytes& body) {
  FUZZ_CHECK(by_broker(body, &MessageBroker::decompress) ==
             inflated(body, messaging::max_inflation * body.size()));
}

void there_and_back(const Bytes& plain) {
  const Bytes bounded = messaging::compress_bounded(plain);
  FUZZ_CHECK(plain.size() <= messaging::max_inflation * bounded.size());
  FUZZ_CHECK(by_broker(bounded, &MessageBroker::decompress) == plain);
  const auto body = by_broker(plain, &MessageBroker::compress);
  FUZZ_CHECK(body.has_value());
  FUZZ_CHECK(inflated(*body, plain.size()) == plain);
  // Padding is paid only where it is needed, and then to the block of five bytes.
  FUZZ_CHECK(bounded.size() <=
             std::max(body->size(), plain.size() / messaging::max_inflation + 11));
  inflate_any(*body);  // may be more than ten times smaller
}

/// The same bytes many times: what shrinks more than ten times.
Bytes repeated(const Bytes& part, unsigned count) {
  Bytes whole;
  for (; count > 0; --count) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv::fuzz;
  FuzzedDataProvider input(data, size);
  const uint8_t repeats = input.ConsumeIntegral<uint8_t>();
  const Bytes bytes = input.ConsumeRemainingBytes<unsigned char>();
  if (repeats == 0) {
    inflate_any(bytes);
  } else {
    there_and_back(repeated(bytes, repeats));
  }
  return 0;
}
