// A fixed pool of N objects: the packet path's heap.
//
// Invariants:
// 1. All slots lie in one block allocated at construction; nothing else is ever allocated or freed.
// 2. The search resumes behind the slot handed out last, so slots are used in turn.
// 3. Storage is handed out filled with zero bytes.
// Threads: allocate() belongs to one thread; release() may run on any. The flag's release/acquire
// pair hands the slot's memory back to the allocating thread.
// Failure: T::BadAlloc when no slot is free; std::bad_alloc when the block cannot be had.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace cv::mem {

template <typename T, std::size_t N>
class ObjectAllocator {
 public:
  ObjectAllocator() : m_slots(static_cast<Slot*>(std::calloc(N, sizeof(Slot)))) {
    if (m_slots == nullptr || reinterpret_cast<std::size_t>(m_slots) % 8 != 0) {
      std::free(m_slots);
      throw std::bad_alloc();
    }
  }

  virtual ~ObjectAllocator() { std::free(m_slots); }
  ObjectAllocator(const ObjectAllocator&) = delete;
  ObjectAllocator& operator=(const ObjectAllocator&) = delete;

  /// Zero-filled storage for one T.
  void* allocate() {
    for (std::size_t probe = 0; probe < N; ++probe) {
      Slot& slot = m_slots[m_cursor];
      m_cursor = m_cursor + 1 == N ? 0 : m_cursor + 1;
      std::atomic_ref<unsigned char> taken(slot.taken);
      if (taken.load(std::memory_order_acquire) == 0) {
        taken.store(1, std::memory_order_relaxed);
        return std::memset(slot.storage, 0, sizeof slot.storage);
      }
    }
    throw typename T::BadAlloc();
  }

  /// `object` came from allocate() and has been destroyed.
  void release(void* object) {
    Slot* slot = reinterpret_cast<Slot*>(object);
    std::atomic_ref<unsigned char>(slot->taken).store(0, std::memory_order_release);
  }

 private:
  // The flag says taken, not free, so that a fresh zero page is a page of free slots: the block
  // becomes resident only as far as it is used.
  struct Slot {
    alignas(8) unsigned char storage[sizeof(T)];
    unsigned char taken;
  };
  static_assert(alignof(T) <= 8);

  Slot* m_slots;
  std::size_t m_cursor = 0;
};

}  // namespace cv::mem
