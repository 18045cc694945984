#include "app/app_daemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "log/log_sinks.h"
#include "support/temporary_folder.h"

namespace {

/// Becomes a daemon in a child of the test; the daemon's exit status, 42 when it is as it should be.
int status_of_daemon(const std::string& pid_file, const std::string& log_file,
                     const std::string& first_output) {
  // The daemon, left by its parent, becomes a child of ours.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t parent = fork();
  if (parent == 0) {
    dup2(open(first_output.c_str(), O_WRONLY | O_APPEND), STDERR_FILENO);
    cv::log::open_stdlog();
    cv::app::switch_to_daemon_mode({pid_file, log_file, [] {}, [] {}, [] {}});
    std::cerr << "error output\n";
    // A descriptor opened now must not become a standard one.
    _exit(getsid(0) == getpid() && open("/dev/null", O_RDONLY) > STDERR_FILENO ? 42 : 99);
  }
  int status = -1;
  EXPECT_EQ(waitpid(parent, &status, 0), parent);
  EXPECT_EQ(status, 0) << "the fork succeeded";
  EXPECT_GT(wait(&status), 0);
  return WEXITSTATUS(status);
}

TEST(Daemon, LogsWhatItCannotDoAndRunsOnWithoutALogFileAlone) {
  const cv::test::TemporaryFolder folder;
  const std::string first = folder.write("before.log", "");
  const std::string log = folder / "new/daemon.log";
  const std::string no_log = first + "/x.log";
  const struct {
    std::string pid_file, log_file;
    int status;
    std::string line;
  } cases[] = {
      {"", log, 42, "error output"},
      {"/dev/full", log, 1, R"(write pid file "/dev/full"; error [28]: No space left on device)"},
      {"", no_log, 42, "open log file \"" + no_log + "\"; error [20]: Not a directory"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(status_of_daemon(c.pid_file, c.log_file, first), c.status);
    std::ifstream written(c.log_file == log ? log : first);
    const std::string text(std::istreambuf_iterator<char>(written), {});
    const std::string failed = c.line == "error output" ? "" : "DAEMON: failed to ";
    EXPECT_TRUE(text.ends_with(failed + c.line + "\n")) << text;
    EXPECT_EQ(text.starts_with("error output\n"), c.log_file == log) << "written behind the rest";
  }
  EXPECT_EQ(std::filesystem::status(log).permissions(), std::filesystem::perms(0644));
}

}  // namespace
