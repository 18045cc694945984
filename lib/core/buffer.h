// N bytes and the number of them in use: the payload part of a packet buffer.
#pragma once

#include <cstddef>
#include <cstring>

namespace cv::mem {

template <std::size_t N>
class Buffer {
 public:
  /// The caller guarantees room: length + size <= N.
  void append(const void* bytes, std::size_t size) {
    std::memcpy(data + length, bytes, size);
    length += size;
  }

  static constexpr std::size_t capacity = N;

  alignas(8) unsigned char data[N];
  std::size_t length = 0;
};

}  // namespace cv::mem
