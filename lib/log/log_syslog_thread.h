// Takes lines to syslog on a thread of its own, so that nobody who logs ever waits for the syslog daemon.
//
// syslog() blocks for as long as the daemon's socket queue, ten lines by default, is full: behind a
// daemon that hangs, for ever. Here only the syslog thread would.
//
// Invariants:
// 1. While the thread runs it alone calls syslog(), in the order of the writes. Before it is started
//    and after it has stopped the writing thread does so itself.
// 2. At most max_lines and max_bytes wait. What comes on top is lost, and one ERROR line in its place
//    says how much.
// 3. A daemon that still hangs when the thread is to stop is given up: the thread stays in its call for
//    the rest of the process, and nobody calls the C library's syslog functions again, because the call
//    holds their lock.
// Threads: write() and flush() on any, start() and stop() on the main thread. A thread does not survive
// fork(): start it after.
// Failure: start() throws std::system_error or std::bad_alloc; writing goes on as before it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cv::log {

class SyslogThread {
 public:
  static constexpr std::size_t max_lines = 8192;
  static constexpr std::size_t max_bytes = std::size_t{8} << 20;
  /// What the daemon gets to take the last lines before the process ends.
  static constexpr std::chrono::milliseconds patience{1000};

  SyslogThread() = default;
  SyslogThread(const SyslogThread&) = delete;
  SyslogThread& operator=(const SyslogThread&) = delete;

  /// The one that the sinks write to. Never destroyed: a thread that was given up may still look at it.
  static SyslogThread& instance();

  void start();
  /// Waits for the lines written so far, then ends the thread; gives up after `patience`.
  void stop();
  /// Waits, at most for `patience`, until all lines written so far are out. True: they are.
  bool flush();

  /// `priority` as syslog() takes it.
  void write(int priority, std::string text);
  /// Counts a line that its writer had no memory for.
  void note_lost() noexcept;
  /// The C library's syslog functions must not be called: one of them never returned.
  bool given_up();

 private:
  enum class State { direct, running, stopping, given_up };
  struct Line {
    int priority;
    std::string text;
    uint64_t lost_before;
  };

  void run();
  void deliver_next(std::unique_lock<std::mutex>& lock);
  bool wait_until_out(std::unique_lock<std::mutex>& lock);
  bool idle() const { return m_count == 0 && m_lost == 0 && !m_delivering; }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  State m_state = State::direct;
  std::vector<Line> m_lines;  // a ring of max_lines, made by start()
  std::size_t m_first = 0;
  std::size_t m_count = 0;
  std::size_t m_bytes = 0;
  uint64_t m_lost = 0;        // since the last line that was taken in
  bool m_delivering = false;  // a line is out of the ring and not yet with the daemon
  std::thread m_thread;
};

}  // namespace cv::log
