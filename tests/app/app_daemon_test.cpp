// Every step of becoming a daemon, failing: what is said, the exit status, and what is left behind.
#include "app/app_daemon.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "log/log_sinks.h"
#include "support/temporary_folder.h"

namespace {

std::string g_failing;  // the call that fails
int g_error = 0;
bool g_in_place = false;  // a fork makes no process: the caller goes on as the new one

template <typename Function>
Function original(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool fails(const char* call) {
  if (g_failing != call) return false;
  errno = g_error;
  return true;
}

}  // namespace

// In place of the C library's in this executable.
extern "C" pid_t fork() {
  if (fails("fork")) return -1;
  if (g_in_place) return 0;
  return original<pid_t (*)()>("fork")();
}
extern "C" pid_t setsid() {
  if (fails("setsid")) return -1;
  return original<pid_t (*)()>("setsid")();
}
extern "C" int chdir(const char* path) {
  if (fails("chdir")) return -1;
  return original<int (*)(const char*)>("chdir")(path);
}
extern "C" int dprintf(int descriptor, const char* format, ...) {
  if (fails("dprintf")) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int written = vdprintf(descriptor, format, arguments);
  va_end(arguments);
  return written;
}

namespace {

constexpr int became_daemon = 77;

struct DaemonTest : testing::Test {
  /// Becomes a daemon in this process; the callbacks tell their names. Does not return.
  [[noreturn]] void become(const std::string& pid_file, const std::string& log_file) {
    cv::log::open_stdlog();
    // Standard error becomes the daemon's log; what is logged is to stay where the test sees it.
    static std::ofstream lines(m_folder / "lines", std::ios::app);
    std::cerr.rdbuf(lines.rdbuf());
    const auto told = [](const char* name) {
      return [name] { lines << "called " << name << std::endl; };
    };
    cv::app::switch_to_daemon_mode(
        {pid_file, log_file, told("child"), told("child error"), told("parent exit")});
    lines << "umask " << umask(0) << ", in " << std::filesystem::current_path().string()
          << std::endl;
    _exit(became_daemon);
  }

  cv::test::TemporaryFolder m_folder;
};

TEST_F(DaemonTest, EveryStepThatFailsIsSaidAndEndsTheProcessOrIsDoneWithout) {
  const std::string folder = m_folder.path();
  const std::string good_pid = folder + "/node.pid", good_log = folder + "/log/node.log";
  const std::string no_folder = m_folder.write("a_file", "text");
  const std::string child = "called child|", runs = "umask 0, in /tmp|";
  const std::string refused = child + "DAEMON: failed to ", ended = "|called child error|";
  const struct {
    std::string call;
    int error;
    std::string pid_file, log_file;
    std::string lines;  // logged or called, in order, without what stands before the text
  } cases[] = {
      {"", 0, good_pid, good_log, child + runs},
      {"", 0, "", good_log, child + runs},
      {"fork", EAGAIN, good_pid, good_log,
       "DAEMON: failed to fork process; error [11]: |called parent exit|"},
      {"setsid", EPERM, good_pid, good_log,
       refused + "create SID for daemon process; error [1]: " + ended},
      {"chdir", EACCES, good_pid, good_log, refused + "change working directory to /tmp" + ended},
      {"", 0, folder, good_log, refused + "open pid file \"" + folder + "\"; error [21]: " + ended},
      {"", 0, "/dev/full", good_log,
       refused + "write pid file \"/dev/full\"; error [28]: " + ended},
      {"dprintf", ENOSPC, good_pid, good_log,
       refused + "write pid file \"" + good_pid + "\"; error [28]: " + ended},
      // Its log is in syslog: what a library might print is not worth a node.
      {"", 0, good_pid, no_folder + "/log",
       refused + "open log file \"" + no_folder + "/log\"; error [20]: |" + runs},
      {"", 0, good_pid, "/dev/full", child + runs},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.call + " " + c.pid_file + " " + c.log_file);
    const bool becomes_daemon = c.lines.ends_with(runs);
    std::filesystem::remove(m_folder / "lines");
    std::filesystem::remove(good_pid);
    EXPECT_EXIT(
        {
          g_failing = c.call;
          g_error = c.error;
          g_in_place = true;
          become(c.pid_file, c.log_file);
        },
        testing::ExitedWithCode(becomes_daemon ? became_daemon : 1), "");
    std::string lines;
    std::getline(std::ifstream(m_folder / "lines"), lines, '\0');
    std::istringstream expected(c.lines);
    size_t at = 0;
    for (std::string line; at != lines.npos && std::getline(expected, line, '|');) {
      at = lines.find(line, at);
      EXPECT_NE(at, lines.npos) << line << "\nis missing or out of order in\n" << lines;
    }
    if (becomes_daemon) {
      EXPECT_EQ(std::filesystem::status(m_folder / "log").permissions(),
                std::filesystem::perms(0755));
    }
    EXPECT_EQ(std::filesystem::exists(good_pid), becomes_daemon && c.pid_file == good_pid)
        << "a pid file stands for a daemon";
  }
}

}  // namespace
