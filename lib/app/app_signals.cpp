#include "app/app_signals.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cv::app {

void SignalRecord::open() {
  if (m_wake_descriptor >= 0) return;
  m_wake_descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (m_wake_descriptor < 0) {
    throw std::system_error(errno, std::generic_category(),
                            "impossible to create an event descriptor");
  }
}

void SignalRecord::on_signal(int number) noexcept {
  const uint64_t index = m_claimed.fetch_add(1, std::memory_order_relaxed);
  m_slots[index % capacity].store((index + 1) << 8 | static_cast<uint64_t>(number),
                                  std::memory_order_release);
  wake();
}

void SignalRecord::wake() noexcept {
  // The interrupted code may be about to read its own errno.
  const int error = errno;
  const uint64_t one = 1;
  // It fails only when the counter is full, and then the descriptor is readable already.
  [[maybe_unused]] const ssize_t written = write(m_wake_descriptor, &one, sizeof one);
  errno = error;
}

void SignalRecord::clear_wake() {
  uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = ::read(m_wake_descriptor, &count, sizeof count);
}

int SignalRecord::take() {
  while (m_taken != m_claimed.load(std::memory_order_relaxed)) {
    const uint64_t slot = m_slots[m_taken % capacity].load(std::memory_order_acquire);
    const uint64_t lap_end = slot >> 8;
    if (lap_end < m_taken + 1) return 0;  // claimed and not stored yet: the next call gets it
    ++m_taken;
    if (lap_end == m_taken) return static_cast<int>(slot & 0xFF);
    ++m_lost;
  }
  return 0;
}

uint64_t SignalRecord::take_lost() { return std::exchange(m_lost, 0); }

}  // namespace cv::app
