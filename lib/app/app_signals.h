// From the signal handler to the main thread: which signals arrived, in order, and a descriptor that
// becomes readable when one did.
//
// A handler may not log: the sinks take locks that the interrupted code may hold. So it records the
// number here, and the main thread writes the line when it next comes by.
//
// Threads: on_signal() and wake() on any thread and inside a handler, where another handler may
// interrupt them; everything else on the main thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace cv::app {

class SignalRecord {
 public:
  /// More signals than this between two looks of the main thread lose their lines (the oldest first);
  /// the flags they set are never lost.
  static constexpr std::size_t capacity = 64;

  constexpr SignalRecord() = default;
  SignalRecord(const SignalRecord&) = delete;
  SignalRecord& operator=(const SignalRecord&) = delete;

  /// Makes the wake descriptor, once. Throws std::system_error.
  /// It is never closed: a handler may run as long as the process does.
  void open();

  /// Async-signal-safe: records the number, then wakes.
  void on_signal(int number) noexcept;
  /// Async-signal-safe: makes the wake descriptor readable.
  void wake() noexcept;

  /// Readable from a wake() on until clear_wake(); -1 before open().
  int wake_descriptor() const { return m_wake_descriptor; }
  void clear_wake();

  /// Whether take() may have something to give. Cheap enough to ask once a packet.
  bool pending() const { return m_claimed.load(std::memory_order_relaxed) != m_taken; }
  /// The oldest number not taken yet, or 0.
  int take();
  /// How many numbers were overwritten before they could be taken, since the last call.
  uint64_t take_lost();

 private:
  static_assert(std::atomic<uint64_t>::is_always_lock_free);

  // A handler claims an index by counting up and then stores, so that one interrupting it in between
  // takes the next slot: order of arrival, no slot twice. A slot holds (index + 1) << 8 | number: the
  // reader thus knows whether it sees its own lap, one still to be stored, or a later one.
  std::atomic<uint64_t> m_claimed{0};
  std::atomic<uint64_t> m_slots[capacity] = {};
  uint64_t m_taken = 0;
  uint64_t m_lost = 0;
  int m_wake_descriptor = -1;
};

}  // namespace cv::app
