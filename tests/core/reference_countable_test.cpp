#include "core/reference_countable.h"

#include <gtest/gtest.h>
#include <thread>

#include "support/log_capture.h"

namespace {

using cv::rc_ptr;

std::atomic<int> destroyed;

struct Object : cv::ReferenceCountable {
  ~Object() override { ++destroyed; }
};

TEST(ReferenceCountable, TheLastReferenceDestroysOnce) {
  destroyed = 0;
  rc_ptr<Object> first(new Object);
  rc_ptr<Object> second = first;
  rc_ptr<Object> moved = std::move(first);
  second = second;
  second.reset();
  EXPECT_EQ(destroyed, 0);
  moved = rc_ptr<Object>(new Object);
  EXPECT_EQ(destroyed, 1);
  Object* raw = moved.detach();
  EXPECT_EQ(destroyed, 1);
  rc_ptr<Object>::adopt(raw).reset();
  EXPECT_EQ(destroyed, 2);

  // Adopting a reference that nobody gave up.
  cv::test::LogCapture log;
  Object on_stack;
  rc_ptr<Object>::adopt(&on_stack).reset();
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(log.texts(), std::vector<std::string>{
                             "ERROR reference_countable RC_PTR: possibly a memory leak: "
                             "impossible to release pointer with negative reference count"});
}

TEST(ReferenceCountable, CountsAcrossThreads) {
  destroyed = 0;
  {
    const auto copy_often = [object = rc_ptr<Object>(new Object)] {
      for (int k = 0; k < 200000; ++k) rc_ptr<Object> another = object;
    };
    const std::jthread one(copy_often), two(copy_often);
  }
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
