#include "core/object_allocator.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

#include "core/buffer.h"

namespace {

struct Thing {
  class BadAlloc : public std::bad_alloc {};
  unsigned char bytes[24];
};
using Pool = cv::mem::ObjectAllocator<Thing, 5>;

TEST(ObjectAllocator, HandsOutEverySlotThenThrowsThenReusesAReleasedOne) {
  Pool pool;
  std::vector<void*> taken;
  for (int i = 0; i < 5; ++i) taken.push_back(pool.allocate());
  std::sort(taken.begin(), taken.end());
  EXPECT_EQ(std::unique(taken.begin(), taken.end()), taken.end());
  EXPECT_THROW(pool.allocate(), Thing::BadAlloc);
  pool.release(taken[3]);
  EXPECT_EQ(pool.allocate(), taken[3]);
  EXPECT_THROW(pool.allocate(), Thing::BadAlloc);
}

TEST(ObjectAllocator, ResumesBehindTheSlotHandedOutLast) {
  Pool pool;
  void* first = pool.allocate();
  void* second = pool.allocate();
  pool.release(first);
  void* third = pool.allocate();
  EXPECT_NE(third, first);
  EXPECT_EQ(static_cast<char*>(third) - static_cast<char*>(second),
            static_cast<char*>(second) - static_cast<char*>(first));
  pool.allocate();
  pool.allocate();
  EXPECT_EQ(pool.allocate(), first) << "wraps around to the free slot";
}

TEST(ObjectAllocator, StorageIsZeroedEveryTime) {
  cv::mem::ObjectAllocator<Thing, 1> pool;
  for (int round = 0; round < 2; ++round) {
    auto* thing = static_cast<Thing*>(pool.allocate());
    EXPECT_TRUE(std::all_of(thing->bytes, thing->bytes + sizeof thing->bytes,
                            [](unsigned char byte) { return byte == 0; }));
    std::fill_n(thing->bytes, sizeof thing->bytes, static_cast<unsigned char>(0xAB));
    pool.release(thing);
  }
}

TEST(Buffer, AppendsBehindWhatIsThere) {
  cv::mem::Buffer<8> buffer;
  buffer.append("abc", 3);
  buffer.append("de", 2);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.data), buffer.length), "abcde");
}

}  // namespace
