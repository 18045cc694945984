#include "tools/stop_signals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

#include "core/clock.h"

namespace cv::tools {

StopSignals::StopSignals() {
  sigemptyset(&m_signals);
  sigaddset(&m_signals, SIGINT);
  sigaddset(&m_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &m_signals, &m_previous);
  m_descriptor = signalfd(-1, &m_signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (m_descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

StopSignals::~StopSignals() {
  ::close(m_descriptor);
  // A process that is about to end anyway has no use for the signal's second delivery.
  if (!stopped()) pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

void StopSignals::accept_signal() {
  signalfd_siginfo info{};
  if (::read(m_descriptor, &info, sizeof(info)) != sizeof(info)) return;
  m_stopped.store(true, std::memory_order_release);
}

bool StopSignals::sleep_until(int64_t deadline_us) {
  // The wait may end early for no reason that matters here.
  while (!stopped() && steady_clock().now_us() < deadline_us) wait_readable_until(-1, deadline_us);
  return !check();
}

bool StopSignals::wait_readable_until(int descriptor, int64_t deadline_us) {
  if (stopped()) return false;
  const int64_t left_us = std::max<int64_t>(0, deadline_us - steady_clock().now_us());
  const timespec timeout{left_us / 1000000, left_us % 1000000 * 1000};
  std::array<pollfd, 2> waited = {pollfd{m_descriptor, POLLIN, 0}, pollfd{descriptor, POLLIN, 0}};
  // poll() passes over a descriptor of -1.
  if (::ppoll(waited.data(), waited.size(), &timeout, nullptr) <= 0) return false;
  if (waited[0].revents != 0) accept_signal();
  return waited[1].revents != 0;
}

}  // namespace cv::tools
