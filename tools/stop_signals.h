// SIGINT and SIGTERM as something to wait for, so that a command ends between two steps and never in
// the middle of one.
//
// Create it before any other thread: threads inherit that the two signals are blocked, and only the
// creating thread ever sees them. Those after the first change nothing: wrappers such as timeout(1)
// deliver every signal twice, and no command takes long to end. One thread, but for stopped().
#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>

namespace cv::tools {

class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Whether one has arrived. Any thread.
  bool stopped() const { return m_stopped.load(std::memory_order_acquire); }
  /// As stopped(), after a look at what has arrived since the last wait.
  bool check() {
    wait_readable_until(-1, 0);
    return stopped();
  }

  /// Sleeps until steady_clock() shows `deadline_us` or a signal arrives; false when stopped.
  bool sleep_until(int64_t deadline_us);
  /// As sleep_until(), and also until `descriptor` is readable; true when it is.
  bool wait_readable_until(int descriptor, int64_t deadline_us);

 private:
  void accept_signal();

  std::atomic<bool> m_stopped{false};
  sigset_t m_signals;
  sigset_t m_previous;
  int m_descriptor;
};

}  // namespace cv::tools
