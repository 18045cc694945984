// One received datagram in a slot of a fixed pool.
//
// A PacketBuffer is created by the receiving thread, held through rc_ptr, and given back to the pool
// by whichever thread drops the last reference. Creating and destroying one never touches the
// general heap. Failure: `new PacketBuffer` throws PacketBuffer::BadAlloc when every slot is taken.
#pragma once

#include <cstddef>
#include <new>

#include "core/buffer.h"
#include "core/object_allocator.h"
#include "core/reference_countable.h"
#include "media/media_packet.h"

namespace cv::media {

class PacketBuffer : public ReferenceCountable, public mem::Buffer<max_packet_bytes> {
 public:
  class BadAlloc : public std::bad_alloc {
   public:
    const char* what() const noexcept override;
  };

  /// Half as many again as the packet queue holds: the queue, not the pool, is what overload fills.
  static constexpr std::size_t pool_slots = 150000;
  using Allocator = mem::ObjectAllocator<PacketBuffer, pool_slots>;

  static void* operator new(std::size_t size);
  static void operator delete(void* buffer);

  /// Made before main() and never destroyed: a buffer may outlive every other object.
  static Allocator& allocator;
};

}  // namespace cv::media
