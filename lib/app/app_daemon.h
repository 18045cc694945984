// Turning the process into a daemon: one fork, a session of its own, no terminal, a pid file.
#pragma once

#include <functional>
#include <string>

namespace cv::app {

struct DaemonModeArgs {
  DaemonModeArgs(std::string pid_file_path, std::string log_file_path,
                 std::function<void()> child_callback, std::function<void()> child_error_callback,
                 std::function<void()> parent_exit_callback);

  std::string pid_file;  // absolute; empty for none
  std::string log_file;  // where standard output and standard error go
  std::string working_directory = "/tmp";
  std::function<void()> on_child;        // in the new process, right after the fork
  std::function<void()> on_child_error;  // before the new process exits on an error
  std::function<void()> on_parent_exit;  // before the parent process exits
};

/// Returns in the daemon process only. The parent exits with 0 (1 when there was no fork), the new
/// process with 1 when it cannot become a daemon; both after an ERROR line. A log file that cannot
/// be opened is an ERROR line too, but the daemon runs on: its log is in syslog. The process must be
/// single-threaded.
void switch_to_daemon_mode(const DaemonModeArgs& args);

}  // namespace cv::app
