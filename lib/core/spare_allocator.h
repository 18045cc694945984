// Memory for the table of one open-addressing hash map, had before it is needed.
//
// absl's tables do not survive a failed allocation: they note the new capacity first, then ask for the
// memory, and what an exception leaves behind is freed as what it is not. So the block that the next
// growth takes is kept at hand, and whoever inserts asks with prepare() whether it is. It costs address
// space; nothing touches it before its time.
//
// Invariant: a table grows by doubling its number of slots, each time to at most twice its bytes and
// slack_bytes more.
// Threads: one at a time. Failure: prepare() returns false; a growth that was not prepared ends the process.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace cv::mem {

class Spare {
 public:
  static constexpr std::size_t slack_bytes = 256;

  Spare() = default;
  ~Spare() { ::operator delete(m_block); }
  Spare(const Spare&) = delete;
  Spare& operator=(const Spare&) = delete;

  /// True: the next insertion will not want for memory.
  bool prepare() {
    if (m_block != nullptr) return true;
    m_bytes = 2 * m_in_use_bytes + slack_bytes;
    m_block = ::operator new(m_bytes, std::nothrow);
    return m_block != nullptr;
  }

  void* take(std::size_t bytes) {
    if (m_block == nullptr || bytes > m_bytes) std::abort();
    m_in_use_bytes = bytes;
    return std::exchange(m_block, nullptr);
  }

 private:
  void* m_block = nullptr;
  std::size_t m_bytes = 0;
  std::size_t m_in_use_bytes = 0;  // by the table
};

/// Takes from a spare, which outlives the map.
template <typename T>
class SpareAllocator {
 public:
  using value_type = T;

  explicit SpareAllocator(Spare& spare) : m_spare(&spare) {}
  template <typename U>
  SpareAllocator(const SpareAllocator<U>& other) : m_spare(other.spare()) {}

  T* allocate(std::size_t count) { return static_cast<T*>(m_spare->take(count * sizeof(T))); }
  void deallocate(T* block, std::size_t) { ::operator delete(block); }
  Spare* spare() const { return m_spare; }
  bool operator==(const SpareAllocator& other) const { return m_spare == other.m_spare; }

 private:
  Spare* m_spare;
};

}  // namespace cv::mem
