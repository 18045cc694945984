// Hands the newest of a kind of object from the threads that make it to the one that uses it.
//
// Invariants:
// 1. The slot owns one reference to the object in it; publish() and take() move that reference.
// 2. An object is read-only from the moment it is published.
// 3. Neither side ever waits: each operation is one atomic exchange.
// Threads: publish() on any, take() on the one thread that uses the objects.
#pragma once

#include <atomic>

#include "core/reference_countable.h"

namespace cv::mn {

template <typename T>
class Exchanger {
 public:
  Exchanger() = default;
  ~Exchanger() { take(); }
  Exchanger(const Exchanger&) = delete;
  Exchanger& operator=(const Exchanger&) = delete;

  /// Returns the object published before when nobody took it, else an empty pointer.
  rc_ptr<T> publish(rc_ptr<T> object) {
    return rc_ptr<T>::adopt(m_newest.exchange(object.detach(), std::memory_order_acq_rel));
  }

  /// The object published since the last call, or an empty pointer.
  rc_ptr<T> take() {
    return rc_ptr<T>::adopt(m_newest.exchange(nullptr, std::memory_order_acq_rel));
  }

 private:
  std::atomic<T*> m_newest{nullptr};
};

}  // namespace cv::mn
