#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "core/queue_reader.h"
#include "core/reference_countable.h"

namespace {

struct Item : cv::ReferenceCountable {
  explicit Item(int number) : value(number) { ++alive; }
  ~Item() override { --alive; }
  int value;
  static inline std::atomic<int> alive{0};
};
using ItemPtr = cv::rc_ptr<Item>;

constexpr uint64_t wait_ns = 20000000;

/// Records what it reads; blocks inside the first delivery while `gate` is closed.
class Reader : public cv::QueueReader<ItemPtr, 8, wait_ns> {
 public:
  void on_queue_read(ItemPtr item) override {
    while (!gate) std::this_thread::yield();
    if (item) {
      values.push_back(item->value);
    } else {
      ++empty_reads;
    }
  }
  std::atomic<bool> gate{true};
  std::vector<int> values;
  std::atomic<int> empty_reads{0};
};

class IdleReader : public cv::QueueIdleReader<ItemPtr, 8, wait_ns> {
 public:
  void on_queue_read(ItemPtr item) override {
    while (!gate) std::this_thread::yield();
    if (item) ++reads;
  }
  bool on_queue_idle() override { return work_left > 0 && work_left-- > 0; }
  void on_queue_try() override { ++tries; }
  const cv::QueueIdleReaderStatistic& counters() const {
    return static_cast<const cv::QueueIdleReaderStatistic&>(statistic());
  }
  std::atomic<bool> gate{true};
  std::atomic<int> work_left{0};
  std::atomic<int> reads{0};
  std::atomic<uint64_t> tries{0};
};

TEST(QueueReader, RefusesWhenFullAndAcceptsAgainAfterATake) {
  Reader reader;
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(reader.push(ItemPtr(new Item(i))));
  EXPECT_FALSE(reader.push(ItemPtr(new Item(8))));
  EXPECT_EQ(Item::alive, 8) << "a refused item is released";
  EXPECT_EQ(reader.statistic().passed.get(), 8u);
  EXPECT_EQ(reader.statistic().dropped.get(), 1u);

  reader.start();
  while (!reader.push(ItemPtr(new Item(9)))) std::this_thread::yield();
  reader.stop();
  EXPECT_EQ(reader.values, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 9}));
  EXPECT_EQ(Item::alive, 0);
}

TEST(QueueReader, DeliversEverythingQueuedBeforeItStops) {
  Reader reader;
  reader.gate = false;
  reader.start();
  for (int i = 0; i < 8; ++i) reader.push(ItemPtr(new Item(i)));
  std::thread opener([&] { reader.gate = true; });
  reader.stop();
  opener.join();
  EXPECT_EQ(reader.values.size(), 8u);
  EXPECT_EQ(reader.statistic().elements.get(), 0u);
}

TEST(QueueReader, HandsAnEmptyItemOverWhenAWaitPassesWithNothingToRead) {
  Reader reader;
  reader.start();
  while (reader.empty_reads < 2) std::this_thread::yield();
  reader.stop();
  EXPECT_TRUE(reader.values.empty());
}

TEST(QueueIdleReader, LeavesTheQueueWhenStoppedAndReleasesItWithTheReader) {
  {
    IdleReader reader;
    reader.gate = false;
    reader.start();
    for (int i = 0; i < 5; ++i) reader.push(ItemPtr(new Item(i)));
    while (reader.tries < 1) std::this_thread::yield();
    std::thread stopper([&] { reader.stop(); });
    // The reader is held inside a delivery until the flag has been cleared.
    while (reader.statistic().passed.get() < 5) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    reader.gate = true;
    stopper.join();
    EXPECT_LT(reader.reads, 5);
    EXPECT_GT(Item::alive, 0);
  }
  EXPECT_EQ(Item::alive, 0);
}

TEST(QueueIdleReader, LooksAgainAtOnceWhileTheIdleCallHasWork) {
  IdleReader reader;
  reader.work_left = 1000;
  reader.start();
  while (reader.work_left > 0) std::this_thread::yield();
  reader.stop();
  EXPECT_EQ(reader.counters().idle_hits.get(), 1000u);
  EXPECT_GE(reader.counters().empty_checks.get(), 1000u);
  EXPECT_GE(reader.tries, reader.counters().empty_checks.get());
}

// The hand-over under load: nothing lost, nothing twice, in order, whoever sleeps when.
TEST(Queue, KeepsOrderAcrossThreadsWhenBothSidesRunDryAndFull) {
  constexpr uint64_t count = 300000;
  cv::Queue<uint64_t, 64, true> queue;
  const std::atomic<bool> keep_waiting{true};
  std::thread producer([&] {
    for (uint64_t i = 1; i <= count;) {
      if (queue.push(i)) {
        ++i;
      } else {
        std::this_thread::yield();
      }
    }
  });
  uint64_t expected = 1;
  while (expected <= count) {
    if (queue.empty() && !queue.wait(1000000000, keep_waiting)) continue;
    ASSERT_EQ(queue.take(), expected);
    ++expected;
  }
  producer.join();
  EXPECT_TRUE(queue.empty());
}

}  // namespace
