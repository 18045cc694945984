#include "support/child_process.h"

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <signal.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/eventually.h"

namespace cv::test {

ChildProcess::ChildProcess(Sandbox& sandbox, std::vector<std::string> arguments)
    : m_sandbox(sandbox) {
  static std::atomic<int> number{0};
  m_output_name = "output-" + std::to_string(++number);
  const std::string output = sandbox.write_file(m_output_name, "");
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  // Everything that allocates stands above: the test has threads, and a forked child may not.
  m_pid = fork();
  if (m_pid != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int descriptor = open(output.c_str(), O_WRONLY | O_APPEND);
  dup2(descriptor, STDOUT_FILENO);
  dup2(descriptor, STDERR_FILENO);
  if (!sandbox.enter()) _exit(97);
  execv(pointers[0], pointers.data());
  _exit(98);
}

ChildProcess::~ChildProcess() {
  if (m_pid > 0 && !poll_exit()) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
}

void ChildProcess::send_signal(int number) const { kill(m_pid, number); }

std::string ChildProcess::output() const { return m_sandbox.read_file(m_output_name); }

bool ChildProcess::wait_for_output(const std::string& text, size_t from) {
  const auto found = [&] { return output().find(text, from) != std::string::npos; };
  eventually([&] { return found() || poll_exit(); });
  return found();
}

std::optional<int> ChildProcess::wait_exit(int seconds) {
  eventually([&] { return poll_exit(); }, seconds);
  return m_status;
}

bool ChildProcess::poll_exit() {
  int status = 0;
  if (!m_status && waitpid(m_pid, &status, WNOHANG) == m_pid) {
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return m_status.has_value();
}

std::string executable(const std::string& name) {
  return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name).string();
}

}  // namespace cv::test
