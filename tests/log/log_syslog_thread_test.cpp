#include "log/log_syslog_thread.h"

#include <atomic>
#include <cstdarg>
#include <gtest/gtest.h>
#include <regex>
#include <syslog.h>

#include "log/log_sinks.h"
#include "support/eventually.h"

namespace {

using cv::log::SyslogThread;
using cv::test::eventually;

/// A syslog daemon: takes lines when it does not hang.
struct Daemon {
  void take(int priority, const std::string& text) {
    std::unique_lock lock(m_mutex);
    m_waiting = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return !m_hangs; });
    m_waiting = false;
    m_lines.push_back(std::to_string(priority) + " " + text);
  }
  void hang(bool hangs) {
    const std::lock_guard lock(m_mutex);
    m_hangs = hangs;
    m_changed.notify_all();
  }
  /// Until a line has been brought to it, which hangs with it.
  void wait_for_victim() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_waiting; });
  }
  std::vector<std::string> lines() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_lines, {});
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_hangs = false;
  bool m_waiting = false;
  std::vector<std::string> m_lines;
};

Daemon& the_daemon() {
  static Daemon* const immortal = new Daemon;
  return *immortal;
}

}  // namespace

extern "C" void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  thread_local char text[1 << 18];
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  the_daemon().take(priority, text);
}

namespace {

std::string lost_line(std::size_t count) {
  return std::to_string(LOG_USER | LOG_ERR) + " ERROR   | log_syslog_thread | SYSLOG: (" +
         std::to_string(count) + ") lines were lost here: they were not taken in time\n";
}

TEST(SyslogThread, NobodyWaitsForADaemonThatHangsAndWhatIsLostIsSaidInItsPlace) {
  Daemon& daemon = the_daemon();
  SyslogThread thread;
  const auto hang_with = [&](int priority) {
    daemon.hang(true);
    thread.write(priority, "hangs");
    daemon.wait_for_victim();
  };
  thread.write(1, "before the start");
  EXPECT_EQ(daemon.lines(), std::vector<std::string>{"1 before the start"});
  thread.start();
  hang_with(2);
  for (std::size_t i = 0; i < SyslogThread::max_lines + 3; ++i) thread.write(3, std::to_string(i));
  thread.note_lost();
  EXPECT_FALSE(thread.flush());
  daemon.hang(false);
  EXPECT_TRUE(eventually([&] { return thread.flush(); }));
  // A line longer than all that may wait, and one behind it.
  hang_with(4);
  const std::string huge(SyslogThread::max_bytes + 1, 'x');
  thread.write(4, huge);
  thread.write(4, "no room");
  daemon.hang(false);
  EXPECT_TRUE(eventually([&] { return thread.flush(); }));
  // What is out takes no room any more.
  hang_with(5);
  for (const char* text : {"after", "and after"}) thread.write(5, text);
  daemon.hang(false);
  thread.stop();
  thread.write(6, "directly");

  std::vector<std::string> expected{"2 hangs"};
  for (std::size_t i = 0; i < SyslogThread::max_lines; ++i)
    expected.push_back("3 " + std::to_string(i));
  expected.push_back(lost_line(4));
  expected.insert(expected.end(),
                  {"4 hangs", "4 " + huge.substr(0, 131072) + "... (of 8388609 bytes)\n",
                   lost_line(1), "5 hangs", "5 after", "5 and after", "6 directly"});
  std::vector<std::string> lines = daemon.lines();
  for (std::string& line : lines) {
    line = std::regex_replace(line, std::regex("thread:\\d+"), "thread");
  }
  EXPECT_EQ(lines, expected);
}

TEST(SyslogThread, AStopGivesUpADaemonThatHangsAndNobodyCallsTheLibraryAgain) {
  Daemon& daemon = the_daemon();
  static auto* const thread = new SyslogThread;  // its own thread outlives the test
  thread->start();
  daemon.hang(true);
  thread->write(1, "hangs");
  daemon.wait_for_victim();
  thread->stop();
  EXPECT_TRUE(thread->given_up());
  thread->write(2, "would hang");
  daemon.hang(false);
}

}  // namespace
