// The bounded queue in its plainest correct form: each side reads the other's count for every item.
// The yardstick of core/queue.h, with the same hand-over to a consumer that sleeps.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "core/queue.h"

namespace cv::bench {

template <typename T, std::size_t N>
class PlainQueue {
 public:
  bool push(T item) {
    const uint64_t write = m_write.load(std::memory_order_relaxed);
    if (write - m_read.load(std::memory_order_acquire) == N) return false;
    m_data[write % N] = std::move(item);
    m_write.store(write + 1, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (m_waiting.load(std::memory_order_relaxed)) {
      const std::lock_guard lock(m_mutex);
      m_cond.notify_all();
    }
    return true;
  }

  T take() {
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    T item = std::exchange(m_data[read % N], T());
    m_read.store(read + 1, std::memory_order_release);
    return item;
  }

  bool empty() const {
    return m_write.load(std::memory_order_acquire) == m_read.load(std::memory_order_relaxed);
  }

  bool wait(uint64_t timeout_ns, const std::atomic<bool>& keep_waiting) {
    std::unique_lock lock(m_mutex);
    m_waiting.store(true, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    m_cond.wait_for(lock, std::chrono::nanoseconds(timeout_ns),
                    [&] { return !empty() || !keep_waiting.load(std::memory_order_acquire); });
    m_waiting.store(false, std::memory_order_relaxed);
    return !empty();
  }

 private:
  std::unique_ptr<T[]> m_data = std::make_unique<T[]>(N);
  std::mutex m_mutex;
  std::condition_variable m_cond;
  alignas(cache_line_spacing_bytes) std::atomic<uint64_t> m_write{0};
  alignas(cache_line_spacing_bytes) std::atomic<uint64_t> m_read{0};
  alignas(cache_line_spacing_bytes) std::atomic<bool> m_waiting{false};
};

}  // namespace cv::bench
