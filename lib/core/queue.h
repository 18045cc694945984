// A bounded single-producer single-consumer queue that its consumer can sleep on.
//
// Invariants:
// 1. 0 <= m_write - m_read <= N; the item for count k is in slot k mod N; counts are never reset.
// 2. Only the producer writes m_write, only the consumer writes m_read and m_waiting.
// 3. The producer publishes the item before it looks at m_waiting, the consumer sets m_waiting
//    before it looks at m_write, with a full fence between on both sides: one of them sees the
//    other.
// 4. Each side keeps a copy of the other's count: push(), take() and empty() look at the count itself
//    only when the copy says that they cannot go on. Counts only grow, so a copy errs on the safe side.
// 5. push() and take() never allocate; push() takes the mutex only when the consumer sleeps.
// Slots are allocated once, at construction. Failure: push() on a full queue returns false.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <pthread.h>
#include <utility>

namespace cv {

template <typename T, std::size_t N, bool>
class Queue;

// Two lines of 64 bytes: the processor fetches neighbouring lines in pairs.
inline constexpr std::size_t cache_line_spacing_bytes = 128;

template <typename T, std::size_t N>
class Queue<T, N, true> {
 public:
  Queue() : m_data(std::make_unique<T[]>(N)) {
    pthread_condattr_init(&m_attribute);
    pthread_condattr_setclock(&m_attribute, CLOCK_MONOTONIC);
    pthread_cond_init(&m_cond, &m_attribute);
    pthread_mutex_init(&m_mutex, nullptr);
  }

  virtual ~Queue() {
    m_data.reset();
    pthread_condattr_destroy(&m_attribute);
    pthread_cond_destroy(&m_cond);
    pthread_mutex_destroy(&m_mutex);
  }
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  /// Producer. False, and the item is dropped, when N items are waiting.
  bool push(T item) {
    const uint64_t write = m_write.load(std::memory_order_relaxed);
    if (write - m_read_seen >= N) {
      m_read_seen = m_read.load(std::memory_order_acquire);
      if (write - m_read_seen >= N) return false;
    }
    m_data[write % N] = std::move(item);
    m_write.store(write + 1, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (m_waiting.load(std::memory_order_relaxed)) wake();
    return true;
  }

  /// Consumer, after empty() or wait() told it that there is an item.
  T take() {
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    T item = std::exchange(m_data[read % N], T());
    m_read.store(read + 1, std::memory_order_release);
    return item;
  }

  /// Consumer. Reads the producer's count only when all items that it was known to have are taken.
  bool empty() {
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    if (read != m_write_seen) return false;
    m_write_seen = m_write.load(std::memory_order_acquire);
    return read == m_write_seen;
  }

  /// Consumer. Has peek() know of the next `count` items, as far as they are there.
  void look(std::size_t count) {
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    if (m_write_seen - read < count) m_write_seen = m_write.load(std::memory_order_acquire);
  }

  /// Consumer. The item that is to be taken after `distance` others, or null when it is not known to be
  /// there; valid until it is taken.
  const T* peek(std::size_t distance) const {
    const uint64_t at = m_read.load(std::memory_order_relaxed) + distance;
    return at < m_write_seen ? &m_data[at % N] : nullptr;
  }

  /// Consumer (exact), or any thread (a glance).
  uint64_t depth() const {
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    return m_write.load(std::memory_order_acquire) - read;
  }

  /// Consumer. Sleeps until an item is there, `keep_waiting` gets false, or `timeout_ns` has
  /// passed; true when the queue holds an item.
  bool wait(uint64_t timeout_ns, const std::atomic<bool>& keep_waiting) {
    const timespec deadline = deadline_after(timeout_ns);
    pthread_mutex_lock(&m_mutex);
    m_waiting.store(true, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    int result = 0;
    while (result == 0 && empty() && keep_waiting.load(std::memory_order_acquire)) {
      result = pthread_cond_timedwait(&m_cond, &m_mutex, &deadline);
    }
    m_waiting.store(false, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_mutex);
    return !empty();
  }

  /// Any thread: ends a wait() so that it looks at its conditions again.
  void wake() {
    pthread_mutex_lock(&m_mutex);
    pthread_cond_broadcast(&m_cond);
    pthread_mutex_unlock(&m_mutex);
  }

 private:
  static timespec deadline_after(uint64_t timeout_ns) {
    constexpr uint64_t second_ns = 1000000000;
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    const uint64_t nanoseconds = static_cast<uint64_t>(deadline.tv_nsec) + timeout_ns;
    deadline.tv_sec += static_cast<time_t>(nanoseconds / second_ns);
    deadline.tv_nsec = static_cast<long>(nanoseconds % second_ns);
    return deadline;
  }

  std::unique_ptr<T[]> m_data;
  pthread_condattr_t m_attribute;
  pthread_cond_t m_cond;
  pthread_mutex_t m_mutex;
  alignas(cache_line_spacing_bytes) std::atomic<uint64_t> m_write{0};
  uint64_t m_read_seen = 0;  // the producer's copy of m_read, never ahead of it
  alignas(cache_line_spacing_bytes) std::atomic<uint64_t> m_read{0};
  uint64_t m_write_seen = 0;  // the consumer's copy of m_write, never ahead of it
  alignas(cache_line_spacing_bytes) std::atomic<bool> m_waiting{false};
};

}  // namespace cv
