// A child process of a test: started on construction, ended and reaped on destruction.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "support/sandbox.h"

namespace cv::test {

class ChildProcess {
 public:
  /// `arguments[0]` is the executable's path. Its output (standard output and error) goes to a file
  /// of the sandbox.
  ChildProcess(Sandbox& sandbox, std::vector<std::string> arguments);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return m_pid; }
  void send_signal(int number) const;
  std::string output() const;
  /// Waits until the output holds `text` (at or behind `from`), the process ends, or 90 s pass.
  bool wait_for_output(const std::string& text, size_t from = 0);
  /// The exit status once it ended within `seconds`; 128 + signal when a signal ended it.
  std::optional<int> wait_exit(int seconds = 90);

 private:
  bool poll_exit();

  Sandbox& m_sandbox;
  std::string m_output_name;
  pid_t m_pid = -1;
  std::optional<int> m_status;
};

/// The path of an executable of this build.
std::string executable(const std::string& name);

}  // namespace cv::test
