#include "core/reference_countable.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace {

struct Object : cv::ReferenceCountable {
  ~Object() override { ++destroyed; }
  static inline std::atomic<int> destroyed{0};
};
struct Derived : Object {};

using cv::rc_ptr;

class ReferenceCountableTest : public testing::Test {
 protected:
  void SetUp() override { Object::destroyed = 0; }
};

TEST_F(ReferenceCountableTest, TheLastReferenceDestroysOnce) {
  rc_ptr<Object> first(new Object);
  rc_ptr<Object> second = first;
  rc_ptr<Object> moved = std::move(first);
  EXPECT_FALSE(
      first);  // NOLINT(bugprone-use-after-move): a moved-from pointer is empty by contract
  second = second;
  second.reset();
  EXPECT_EQ(Object::destroyed, 0);
  moved = rc_ptr<Object>(new Object);
  EXPECT_EQ(Object::destroyed, 1);
  moved = moved.get();
  EXPECT_EQ(Object::destroyed, 1);
  moved.reset();
  EXPECT_EQ(Object::destroyed, 2);
}

TEST_F(ReferenceCountableTest, ConvertsUpAndDownAndDetaches) {
  rc_ptr<Derived> derived(new Derived);
  rc_ptr<Object> base = derived;
  EXPECT_EQ(cv::rc_static_cast<Derived>(base), derived);
  derived.reset();
  Object* raw = base.detach();
  EXPECT_EQ(Object::destroyed, 0);
  rc_ptr<Object>::adopt(raw).reset();
  EXPECT_EQ(Object::destroyed, 1);
}

TEST_F(ReferenceCountableTest, ReleasingBelowZeroIsLoggedAndLeavesTheObjectAlone) {
  cv::test::LogCapture log;
  Object on_stack;
  // Adopting a reference nobody gave up is the fault that the message is about.
  rc_ptr<Object>::adopt(&on_stack).reset();
  EXPECT_EQ(Object::destroyed, 0);
  EXPECT_EQ(log.texts(), std::vector<std::string>{
                             "ERROR reference_countable RC_PTR: possibly a memory leak: "
                             "impossible to release pointer with negative reference count"});
}

TEST_F(ReferenceCountableTest, CountsAcrossThreads) {
  rc_ptr<Object> object(new Object);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([copy = object] {
      for (int k = 0; k < 20000; ++k) rc_ptr<Object> another = copy;
    });
  }
  object.reset();
  for (auto& thread : threads) thread.join();
  threads.clear();
  EXPECT_EQ(Object::destroyed, 1);
}

}  // namespace
