// A statistic counter: an unsigned 64-bit word written by one thread and read by any.
//
// Invariant: exactly one thread writes a given counter. That is why an increment is a relaxed load
// and a relaxed store, not a locked read-modify-write: it costs what a plain word costs, and a
// reader on another thread never sees a torn value.
#pragma once

#include <atomic>
#include <cstdint>

namespace cv {

class Counter {
 public:
  Counter() = default;
  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

  uint64_t get() const { return m_value.load(std::memory_order_relaxed); }
  void set(uint64_t value) { m_value.store(value, std::memory_order_relaxed); }
  void add(uint64_t value) { set(get() + value); }
  void increment() { add(1); }

 private:
  std::atomic<uint64_t> m_value{0};
};

}  // namespace cv
