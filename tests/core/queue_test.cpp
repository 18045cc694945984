#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "core/queue_reader.h"

namespace {

using Item = std::shared_ptr<int>;

constexpr uint64_t wait_ns = 20000000;

/// Records what it reads; stays inside the delivery of an item until it is stopped.
template <typename Base>
class Recording : public Base {
 public:
  void on_queue_read(Item item) override {
    if (item) reading = true;
    while (item && this->running()) std::this_thread::yield();
    if (item) values.push_back(*item);
    if (!item) ++empty_reads;
  }
  std::vector<int> values;
  std::atomic<int> empty_reads{0};
  std::atomic<bool> reading{false};
};

class IdleReader : public Recording<cv::QueueIdleReader<Item, 8, wait_ns>> {
 public:
  bool on_queue_idle() override { return work_left > 0 && work_left-- > 0; }
  void on_queue_try() override { ++tries; }
  std::atomic<int> work_left{1000};
  uint64_t tries = 0;
};

TEST(QueueReader, RefusesWhenFullAndDeliversEverythingQueuedBeforeItStops) {
  Recording<cv::QueueReader<Item, 8, wait_ns>> reader;
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(reader.push(std::make_shared<int>(i)));
  const Item last = std::make_shared<int>(9);
  EXPECT_FALSE(reader.push(last));
  EXPECT_EQ(last.use_count(), 1) << "a refused item is released";
  EXPECT_EQ(reader.statistic().passed.get(), 8u);
  EXPECT_EQ(reader.statistic().dropped.get(), 1u);

  reader.start();
  while (!reader.push(last)) std::this_thread::yield();
  reader.stop();
  EXPECT_EQ(reader.values, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 9}));
  EXPECT_EQ(reader.statistic().elements.get(), 0u);
  EXPECT_EQ(last.use_count(), 1);
}

TEST(QueueIdleReader, LooksAgainAtOnceWhileTheIdleCallHasWorkThenHandsOverEmptyItems) {
  IdleReader reader;
  reader.start();
  while (reader.empty_reads < 2) std::this_thread::yield();
  reader.stop();
  const auto& counters = static_cast<const cv::QueueIdleReaderStatistic&>(reader.statistic());
  EXPECT_EQ(counters.idle_hits.get(), 1000u);
  EXPECT_EQ(counters.empty_checks.get(), 1000u + static_cast<uint64_t>(reader.empty_reads));
  EXPECT_EQ(reader.tries, counters.empty_checks.get());
  EXPECT_TRUE(reader.values.empty());
}

TEST(QueueIdleReader, LeavesWhatIsStillQueuedWhenItStops) {
  const Item item = std::make_shared<int>(1);
  {
    IdleReader reader;
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(reader.push(item));
    reader.start();
    while (!reader.reading) std::this_thread::yield();
    reader.stop();
    EXPECT_EQ(reader.values.size(), 1u) << "the one whose turn it was";
    EXPECT_EQ(reader.statistic().elements.get(), 4u);
  }
  EXPECT_EQ(item.use_count(), 1) << "released with the queue";
}

// The hand-over under load: nothing lost, nothing twice, in order, whoever sleeps when.
TEST(Queue, KeepsOrderAcrossThreadsWhenBothSidesRunDryAndFull) {
  constexpr uint64_t count = 300000;
  cv::Queue<uint64_t, 64, true> queue;
  const std::atomic<bool> keep_waiting{true};
  std::thread producer([&] {
    for (uint64_t i = 1; i <= count; ++i)
      while (!queue.push(i)) std::this_thread::yield();
  });
  for (uint64_t expected = 1; expected <= count;) {
    if (queue.empty() && !queue.wait(1000000000, keep_waiting)) continue;
    ASSERT_EQ(queue.take(), expected++);
  }
  producer.join();
  EXPECT_TRUE(queue.empty());
}

}  // namespace
