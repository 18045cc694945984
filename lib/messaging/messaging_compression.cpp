#include "messaging/messaging_compression.h"

#include <algorithm>
#include <array>
#include <memory>
#include <zlib.h>

namespace cv::messaging {

namespace {

// Header bits "not final, stored" filled up to a byte, then length 0 and its complement.
constexpr std::array<unsigned char, 5> empty_stored_block = {0x00, 0x00, 0x00, 0xFF, 0xFF};
// A final block of no content, and the checksum behind it.
constexpr std::size_t ending_bytes = 2 + 4;

struct EndDeflate {
  void operator()(z_stream* stream) const { deflateEnd(stream); }
};

/// Appends what deflate() gives for `flush`; `room` is enough for all of it.
bool deflate_into(z_stream& stream, int flush, std::size_t room, std::vector<unsigned char>& out) {
  const std::size_t begin = out.size();
  out.resize(begin + room);
  stream.next_out = out.data() + begin;
  stream.avail_out = static_cast<uInt>(room);
  const int status = deflate(&stream, flush);
  out.resize(out.size() - stream.avail_out);
  return status == (flush == Z_FINISH ? Z_STREAM_END : Z_OK) && stream.avail_in == 0;
}

std::vector<unsigned char> compress_padded(std::span<const unsigned char> plain,
                                           std::size_t least_size) {
  z_stream stream{};
  if (deflateInit(&stream, Z_DEFAULT_COMPRESSION) != Z_OK) return {};
  const std::unique_ptr<z_stream, EndDeflate> owner(&stream);
  stream.next_in = const_cast<unsigned char*>(plain.data());
  stream.avail_in = static_cast<uInt>(plain.size());
  std::vector<unsigned char> out;
  // A sync flush ends on a byte, where stored blocks can be put in without touching zlib's state.
  const std::size_t room = deflateBound(&stream, static_cast<uLong>(plain.size())) + 64;
  if (!deflate_into(stream, Z_SYNC_FLUSH, room, out)) return {};
  while (out.size() + ending_bytes < least_size) {
    out.insert(out.end(), empty_stored_block.begin(), empty_stored_block.end());
  }
  if (!deflate_into(stream, Z_FINISH, 64, out)) return {};
  return out;
}

}  // namespace

std::vector<unsigned char> compress_bounded(std::span<const unsigned char> plain) {
  uLongf size = compressBound(static_cast<uLong>(plain.size()));
  std::vector<unsigned char> out(size);
  if (compress(out.data(), &size, plain.data(), static_cast<uLong>(plain.size())) != Z_OK)
    return {};
  out.resize(size);
  const std::size_t least_size = (plain.size() + max_inflation - 1) / max_inflation;
  return out.size() >= least_size ? out : compress_padded(plain, least_size);
}

}  // namespace cv::messaging
