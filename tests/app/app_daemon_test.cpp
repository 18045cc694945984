#include "app/app_daemon.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "app/scripted_service.h"
#include "log/log_sinks.h"
#include "support/eventually.h"
#include "support/sandbox.h"
#include "support/temporary_directory.h"

namespace {

using cv::app::DaemonModeArgs;
using cv::test::TemporaryDirectory;

std::string content_of(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

/// Waits for a child of this process and gives its exit status; 128 + signal when one ended it.
int reap(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Runs `body` in a child process, whose own child comes to us when it goes.
pid_t in_child(const std::function<void()>& body) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(99);
  }
  return child;
}

class DaemonTest : public testing::Test {
 protected:
  DaemonModeArgs args(const std::string& pid_file, const std::string& log_file) {
    return DaemonModeArgs(
        pid_file, log_file, [this] { mark("child"); }, [this] { mark("error"); },
        [this] { mark("parent"); });
  }

  /// Each callback leaves a file, for it runs in another process.
  void mark(const std::string& name) { m_directory.file(name, ""); }
  bool marked(const std::string& name) { return access(m_directory.path(name).c_str(), F_OK) == 0; }

  struct Statuses {
    int parent = -1;
    int daemon = -1;
  };

  /// Becomes a daemon in a child of the test, runs `body` in it and ends it with status 42.
  Statuses run(const DaemonModeArgs& args, const std::function<void()>& body) {
    const pid_t parent = in_child([&] {
      // The lines until the streams are redirected.
      const int descriptor =
          open(m_directory.path("before.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
      dup2(descriptor, STDERR_FILENO);
      cv::log::open_stdlog();
      cv::app::switch_to_daemon_mode(args);
      body();
      _exit(42);
    });
    Statuses statuses;
    statuses.parent = reap(parent);
    statuses.daemon = reap(-1);
    return statuses;
  }

  const TemporaryDirectory m_directory;
};

TEST_F(DaemonTest, HasASessionADirectoryAndAPidFileOfItsOwnAndWritesToItsLog) {
  const std::string log_file = m_directory.path("new/folder/daemon.log");
  const std::string pid_file = m_directory.file("daemon.pid", "an older and longer text");
  const auto statuses = run(args(pid_file, log_file), [] {
    std::cout << "output " << getpid() << ' ' << (getsid(0) == getpid()) << ' '
              << std::filesystem::current_path().string() << ' ' << (read(0, nullptr, 0) == 0)
              << std::endl;
    std::cerr << "error output" << std::endl;
  });
  EXPECT_EQ(statuses.parent, 0);
  EXPECT_EQ(statuses.daemon, 42);
  const std::string pid = content_of(pid_file);
  EXPECT_EQ(content_of(log_file), "output " + pid + " 1 /tmp 1\nerror output\n");
  EXPECT_TRUE(marked("child") && marked("parent") && !marked("error"));
  EXPECT_NE(content_of(m_directory.path("before.log")).find("SYSTEM  | app_daemon:"),
            std::string::npos);
  struct stat info {};
  ASSERT_EQ(stat(log_file.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0022u, 0u) << "nobody else may write the log, whatever the mask";
}

TEST_F(DaemonTest, WhatItCannotDoWithoutEndsItWithALine) {
  const std::string log_file = m_directory.path("daemon.log");
  const std::string pid_file = m_directory.path("missing/daemon.pid");
  auto no_directory = args("", log_file);
  no_directory.working_directory = m_directory.path("missing");
  const struct {
    DaemonModeArgs args;
    std::string line;
  } cases[] = {
      {args(pid_file, log_file), "DAEMON: failed to open pid file \"" + pid_file +
                                     "\"; error [2]: No such file or directory"},
      {args("/dev/full", log_file),
       "DAEMON: failed to write pid file \"/dev/full\"; error [28]: No space left on device"},
      {no_directory,
       "DAEMON: failed to change working directory to " + no_directory.working_directory},
  };
  for (const auto& c : cases) {
    std::filesystem::remove(m_directory.path("error"));
    const auto statuses = run(c.args, [] {});
    EXPECT_EQ(statuses.parent, 0) << "the fork succeeded";
    EXPECT_EQ(statuses.daemon, 1);
    EXPECT_TRUE(marked("error"));
    EXPECT_NE(content_of(log_file).find("ERROR   | app_daemon:"), std::string::npos);
    EXPECT_NE(content_of(log_file).find(c.line + "\n"), std::string::npos) << content_of(log_file);
  }
}

TEST_F(DaemonTest, RunsOnWithoutALogFileAndKeepsItsStandardDescriptorsTaken) {
  const std::string log_file = m_directory.file("file", "") + "/daemon.log";
  const auto statuses = run(args("", log_file), [] {
    std::cerr << "lost" << std::endl;
    // A descriptor opened now must not become standard output or error.
    if (open("/dev/null", O_RDONLY) <= STDERR_FILENO) _exit(1);
  });
  EXPECT_EQ(statuses.daemon, 42);
  const std::string before = content_of(m_directory.path("before.log"));
  EXPECT_NE(before.find("DAEMON: failed to open log file \"" + log_file +
                        "\"; error [20]: Not a "
                        "directory\n"),
            std::string::npos)
      << before;
  EXPECT_EQ(before.find("lost"), std::string::npos);
}

/// Logs as a real service does.
class SyslogService : public cv::test::ScriptedService {
 public:
  void on_logger_open() override { ServiceBase::on_logger_open(); }
  void on_logger_close() override { ServiceBase::on_logger_close(); }
};

TEST(DaemonService, RunsInTheBackgroundLogsToSyslogAndStopsOnASignal) {
  cv::test::Sandbox sandbox;
  const std::string pid_file = sandbox.path() + "/files/daemon.pid";
  const pid_t parent = in_child([&] {
    if (!sandbox.enter()) _exit(77);
    SyslogService service;
    service.work = [] {
      while (!cv::app::ServiceBase::stop_requested()) cv::app::ServiceBase::wait_for_signal(-1);
      return true;
    };
    _exit(service.run({"-d", "--pid-file", pid_file}));
  });
  const int entered = reap(parent);
  if (entered == 77) GTEST_SKIP() << "namespaces are not to be had here";
  ASSERT_EQ(entered, 0);
  ASSERT_TRUE(
      cv::test::eventually([&] { return sandbox.syslog().find("started") != std::string::npos; }));
  const std::string pid = content_of(pid_file);
  const pid_t daemon = static_cast<pid_t>(std::stol(pid));
  ASSERT_GT(daemon, 1);
  kill(daemon, SIGTERM);
  EXPECT_EQ(reap(daemon), 0);

  const std::string log = sandbox.syslog();
  std::string::size_type position = 0;
  for (const char* line :
       {"exec path: /opt/bin/node", "exec args: [-d] [--pid-file]",
        "DAEMON: starting application in daemon mode", "main thread", "signal 15 has been received",
        "application stop has been requested", "stopped"}) {
    position = log.find(line, position);
    ASSERT_NE(position, std::string::npos) << line << " is missing behind the line before in\n"
                                           << log;
  }
  EXPECT_NE(log.find("corvanthscripted[" + pid + "]: SYSTEM  | app:"), std::string::npos) << log;
}

}  // namespace
