// Intrusive, atomically counted references.
//
// Every long-lived object that threads share (packet buffers, sessions, streams, reports,
// databases, configurations) derives from ReferenceCountable and is held through rc_ptr.
//
// Invariants:
// 1. The count is 0 at construction and is changed only by rc_ptr.
// 2. An object is destroyed by the rc_ptr whose release brings the count to 0, on that thread.
// 3. A release that brings the count below 0 is logged and leaves the object alone.
// Threads: counts may change on any thread; one rc_ptr object belongs to one thread at a time.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace cv {

template <typename T>
class rc_ptr;

class ReferenceCountable {
 public:
  ReferenceCountable() = default;
  /// A copy is a new object: it starts without references.
  ReferenceCountable(const ReferenceCountable&) {}
  ReferenceCountable& operator=(const ReferenceCountable&) { return *this; }
  virtual ~ReferenceCountable() = default;

 private:
  template <typename T>
  friend class rc_ptr;

  void acquire() const { m_references.fetch_add(1, std::memory_order_relaxed); }
  void release() const;

  mutable std::atomic<int32_t> m_references{0};
};

template <typename T>
class rc_ptr {
 public:
  rc_ptr() = default;
  rc_ptr(std::nullptr_t) {}
  rc_ptr(T* object) : m_object(object) { acquire(); }
  rc_ptr(const rc_ptr& other) : m_object(other.m_object) { acquire(); }
  rc_ptr(rc_ptr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  template <typename U>
  rc_ptr(const rc_ptr<U>& other) : m_object(other.get()) {
    acquire();
  }
  virtual ~rc_ptr() { reset(); }

  rc_ptr& operator=(rc_ptr other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }

  void reset() {
    if (T* object = std::exchange(m_object, nullptr)) base(object).release();
  }

  /// Gives up the pointer without releasing its reference: the caller owns that reference now.
  T* detach() { return std::exchange(m_object, nullptr); }
  /// Takes over a reference that `detach` gave up.
  static rc_ptr adopt(T* object) {
    rc_ptr pointer;
    pointer.m_object = object;
    return pointer;
  }

  T* get() const { return m_object; }
  T* operator->() const { return m_object; }
  T& operator*() const { return *m_object; }
  explicit operator bool() const { return m_object != nullptr; }
  bool operator==(const rc_ptr& other) const { return m_object == other.m_object; }

 private:
  static const ReferenceCountable& base(const T* object) { return *object; }
  void acquire() {
    if (m_object != nullptr) base(m_object).acquire();
  }

  T* m_object = nullptr;
};

/// Views a reference as one to a derived class; the caller knows that it is one.
template <typename T, typename U>
rc_ptr<T> rc_static_cast(const rc_ptr<U>& pointer) {
  return rc_ptr<T>(static_cast<T*>(pointer.get()));
}

}  // namespace cv

/// By pointer: two references to one object are equal, two equal objects are not.
template <typename T>
struct std::hash<cv::rc_ptr<T>> {
  std::size_t operator()(const cv::rc_ptr<T>& pointer) const noexcept {
    return std::hash<T*>()(pointer.get());
  }
};
