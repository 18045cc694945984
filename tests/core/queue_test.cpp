#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "core/queue_reader.h"

namespace {

using Item = std::shared_ptr<int>;

constexpr uint64_t wait_ns = 20000000;

/// Records what it reads; stays inside the delivery of an item until it is stopped.
class IdleReader : public cv::QueueIdleReader<Item, 8, wait_ns> {
 public:
  void on_queue_read(Item item) override {
    if (item) reading = true;
    while (item && running()) std::this_thread::yield();
    (item ? items_read : empty_reads) += 1;
  }
  bool on_queue_idle() override { return work_left > 0 && work_left-- > 0; }
  void on_queue_try() override { ++tries; }
  std::atomic<int> work_left{1000}, items_read{0}, empty_reads{0};
  std::atomic<bool> reading{false};
  uint64_t tries = 0;
};

TEST(QueueIdleReader, LooksAgainAtOnceWhileTheIdleCallHasWorkThenHandsOverEmptyItems) {
  IdleReader reader;
  reader.start();
  while (reader.empty_reads < 2) std::this_thread::yield();
  reader.stop();
  const auto& counters = static_cast<const cv::QueueIdleReaderStatistic&>(reader.statistic());
  EXPECT_EQ(counters.idle_hits.get(), 1000u);
  EXPECT_EQ(counters.empty_checks.get(), 1000u + static_cast<uint64_t>(reader.empty_reads));
  EXPECT_EQ(reader.tries, counters.empty_checks.get());
}

TEST(QueueIdleReader, LeavesWhatIsStillQueuedWhenItStops) {
  const Item item = std::make_shared<int>(1);
  {
    IdleReader reader;
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(reader.push(item));
    reader.start();
    while (!reader.reading) std::this_thread::yield();
    reader.stop();
    EXPECT_EQ(reader.items_read, 1) << "the one whose turn it was";
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
