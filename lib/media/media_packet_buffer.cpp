#include "media/media_packet_buffer.h"

namespace cv::media {

PacketBuffer::Allocator& PacketBuffer::allocator = *new PacketBuffer::Allocator;

const char* PacketBuffer::BadAlloc::what() const noexcept {
  return "Cannot allocate memory for PacketBuffer";
}

void* PacketBuffer::operator new(std::size_t) { return allocator.allocate(); }

void PacketBuffer::operator delete(void* buffer) { allocator.release(buffer); }

}  // namespace cv::media
