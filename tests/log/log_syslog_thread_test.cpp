#include "log/log_syslog_thread.h"

#include <cstdarg>
#include <gtest/gtest.h>
#include <mutex>
#include <regex>
#include <semaphore>
#include <syslog.h>

#include "log/log_sinks.h"
#include "support/eventually.h"

namespace {

using cv::log::SyslogThread;
using cv::test::eventually;

std::mutex g_daemon;  // while a test holds it, the syslog daemon hangs
std::counting_semaphore<> g_brought{0};
std::vector<std::string> g_taken;  // under g_daemon

/// Until a line has been brought to the daemon, which hangs with it.
void hang_with(SyslogThread& thread, int priority) {
  g_daemon.lock();
  while (g_brought.try_acquire()) continue;
  thread.write(priority, "hangs");
  g_brought.acquire();
}

std::string lost_line(std::size_t count) {
  return std::to_string(LOG_USER | LOG_ERR) + " ERROR   | log_syslog_thread | SYSLOG: (" +
         std::to_string(count) + ") lines were lost here: they were not taken in time\n";
}

}  // namespace

extern "C" void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  thread_local char text[1 << 18];
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  g_brought.release();
  const std::lock_guard lock(g_daemon);
  g_taken.push_back(std::to_string(priority) + " " + text);
}

namespace {

TEST(SyslogThread, NobodyWaitsForADaemonThatHangsAndWhatIsLostIsSaidInItsPlace) {
  SyslogThread thread;
  thread.write(1, "before the start");
  thread.start();
  hang_with(thread, 2);
  for (std::size_t i = 0; i < SyslogThread::max_lines + 3; ++i) thread.write(3, std::to_string(i));
  thread.note_lost();
  EXPECT_FALSE(thread.flush());
  g_daemon.unlock();
  EXPECT_TRUE(eventually([&] { return thread.flush(); }));
  // A line longer than all that may wait, and one behind it.
  hang_with(thread, 4);
  const std::string huge(SyslogThread::max_bytes + 1, 'x');
  thread.write(4, huge);
  thread.write(4, "no room");
  g_daemon.unlock();
  EXPECT_TRUE(eventually([&] { return thread.flush(); }));
  // What is out takes no room any more, and what is lost between lines is said once.
  hang_with(thread, 5);
  const std::string large(SyslogThread::max_bytes - 10, 'y');
  for (const std::string& text :
       {large, std::string("has no room"), std::string("fits"), std::string("too")}) {
    thread.write(5, text);
  }
  g_daemon.unlock();
  thread.stop();
  thread.write(6, "directly");

  std::vector<std::string> expected{"1 before the start", "2 hangs"};
  for (std::size_t i = 0; i < SyslogThread::max_lines; ++i)
    expected.push_back("3 " + std::to_string(i));
  expected.insert(
      expected.end(),
      {lost_line(4), "4 hangs", "4 " + huge.substr(0, 131072) + "... (of 8388609 bytes)\n",
       lost_line(1), "5 hangs", "5 " + large.substr(0, 131072) + "... (of 8388598 bytes)\n",
       lost_line(1), "5 fits", "5 too", "6 directly"});
  for (std::string& line : g_taken) {
    line = std::regex_replace(line, std::regex("thread:\\d+"), "thread");
  }
  EXPECT_EQ(g_taken, expected);
}

// The daemon hangs to the end of the process, and the thread with it.
TEST(SyslogThread, AStopGivesUpADaemonThatHangsAndNobodyCallsTheLibraryAgain) {
  static auto* const immortal = new SyslogThread;
  immortal->start();
  hang_with(*immortal, 1);
  immortal->stop();
  EXPECT_TRUE(immortal->given_up());
  immortal->write(2, "would hang");
}

}  // namespace
