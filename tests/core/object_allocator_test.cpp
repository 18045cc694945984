#include "core/object_allocator.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace {

struct Thing {
  class BadAlloc : public std::bad_alloc {};
  unsigned char bytes[24];
};

TEST(ObjectAllocator, HandsOutEverySlotInTurnAndZeroed) {
  cv::mem::ObjectAllocator<Thing, 5> pool;
  const auto allocate = [&pool] {
    auto* thing = static_cast<Thing*>(pool.allocate());
    EXPECT_EQ(std::count(thing->bytes, thing->bytes + sizeof thing->bytes, 0), 24);
    std::fill_n(thing->bytes, sizeof thing->bytes, static_cast<unsigned char>(0xAB));
    return thing;
  };
  Thing* const first = allocate();
  Thing* const second = allocate();
  pool.release(first);
  std::set<Thing*> taken = {first, second};
  for (int i = 0; i < 3; ++i) taken.insert(allocate());
  EXPECT_EQ(taken.size(), 5u) << "the slot given back is not next";
  EXPECT_EQ(allocate(), first);
  EXPECT_THROW(pool.allocate(), Thing::BadAlloc);
  pool.release(second);
  EXPECT_EQ(allocate(), second);
}

}  // namespace
