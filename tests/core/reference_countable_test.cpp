#include "core/reference_countable.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

using cv::rc_ptr;

int destroyed = 0;

struct Object : cv::ReferenceCountable {
  ~Object() override { ++destroyed; }
};

TEST(ReferenceCountable, TheLastReferenceDestroysOnce) {
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

}  // namespace
