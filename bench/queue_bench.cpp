// Items handed from one thread to another, each on a processor of its own: the product's queue and its
// plain form side by side. Run it without pinning: it pins its threads itself, and needs two processors.
//
// A time is that of one item, wall clock: the median of many short rounds in which no other process
// of the machine had a turn on these processors.
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "core/queue.h"
#include "plain_queue.h"
#include "ratio_main.h"

namespace cv::bench {

namespace {

constexpr std::size_t slots = 100000;  // as the packet queue has
constexpr uint64_t second_ns = 1000000000;

/// As they were before anything was pinned.
const std::vector<int>& usable_processors() {
  static const std::vector<int> usable = [] {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    std::vector<int> processors;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
      if (CPU_ISSET(i, &allowed)) processors.push_back(i);
    }
    return processors;
  }();
  return usable;
}

void pin_this_thread(int processor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  pthread_setaffinity_np(pthread_self(), sizeof one, &one);
}

/// What the consumer does when it finds the queue empty.
enum class Reader { polls, sleeps };

long preemptions() {
  rusage usage;
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nivcsw;
}

/// Two threads that hand items over in rounds, beginning each one together.
template <typename Queue, Reader reader>
class HandOver {
 public:
  explicit HandOver(const std::vector<int>& processors) {
    pin_this_thread(processors[0]);
    m_consumer = std::thread([this, processor = processors[1]] {
      pin_this_thread(processor);
      for (uint64_t round = 1; begin_round(round); ++round) consume_round();
    });
  }
  ~HandOver() {
    m_stopped = true;
    m_consumer.join();
  }

  /// Seconds an item. Negative: one of the threads was cut short by another process.
  double run_round() {
    const uint64_t taken_before = m_taken.load();
    const long preempted_before = preemptions();
    ++m_round;
    while (m_joined.load() != m_round) {
    }
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t i = 0; i < round_items; ++i) {
      while (!m_queue->push(i)) {
      }
    }
    while (m_taken.load() == taken_before) {
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    const bool cut_short = preemptions() != preempted_before || m_consumer_preempted;
    return cut_short ? -1 : passed.count() / round_items;
  }

 private:
  static constexpr uint64_t round_items = 20000;

  bool begin_round(uint64_t round) {
    while (m_round.load() != round) {
      if (m_stopped) return false;
    }
    m_joined = round;
    return true;
  }

  void consume_round() {
    const long preempted_before = preemptions();
    uint64_t sum = 0;
    for (uint64_t i = 0; i < round_items; ++i) {
      while (m_queue->empty()) {
        if constexpr (reader == Reader::sleeps) m_queue->wait(second_ns, m_keep_waiting);
      }
      sum += m_queue->take();
    }
    benchmark::DoNotOptimize(sum);
    m_consumer_preempted = preemptions() != preempted_before;
    m_taken += round_items;
  }

  std::unique_ptr<Queue> m_queue = std::make_unique<Queue>();
  const std::atomic<bool> m_keep_waiting{true};
  std::atomic<bool> m_stopped{false};
  std::atomic<uint64_t> m_round{0};
  std::atomic<uint64_t> m_joined{0};
  std::atomic<uint64_t> m_taken{0};
  bool m_consumer_preempted = false;
  std::thread m_consumer;
};

template <typename Queue, Reader reader>
void hand_over(benchmark::State& state) {
  constexpr std::size_t wanted_rounds = 101;
  constexpr std::size_t most_rounds = 50 * wanted_rounds;
  HandOver<Queue, reader> hand_over(usable_processors());
  for (auto _ : state) {
    std::vector<double> seconds;
    for (std::size_t i = 0; i < most_rounds && seconds.size() < wanted_rounds; ++i) {
      const double item = hand_over.run_round();
      if (item > 0) seconds.push_back(item);
    }
    if (seconds.size() < wanted_rounds) return state.SkipWithError("the machine is too busy");
    std::nth_element(seconds.begin(), seconds.begin() + wanted_rounds / 2, seconds.end());
    state.SetIterationTime(seconds[wanted_rounds / 2]);
  }
}

template <typename Queue, Reader reader>
void add(const std::string& name) {
  benchmark::RegisterBenchmark(name.c_str(), hand_over<Queue, reader>)
      ->UseManualTime()
      ->Iterations(1);
}

}  // namespace

}  // namespace cv::bench

int main(int argc, char** argv) {
  using namespace cv::bench;
  if (usable_processors().size() < 2) {
    std::fputs("queue_bench: needs two processors\n", stderr);
    return 1;
  }
  using Plain = PlainQueue<uint64_t, slots>;
  using Fast = cv::Queue<uint64_t, slots, true>;
  add<Plain, Reader::polls>("queue/busy_reader/plain");
  add<Fast, Reader::polls>("queue/busy_reader/fast");
  add<Plain, Reader::sleeps>("queue/sleeping_reader/plain");
  add<Fast, Reader::sleeps>("queue/sleeping_reader/fast");
  return run(argc, argv);
}
