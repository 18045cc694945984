#include "app/app_daemon.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "log/log.h"
#include "utils/utils_path.h"

namespace cv::app {

namespace path = utils::path;

DaemonModeArgs::DaemonModeArgs(std::string pid_file_path, std::string log_file_path,
                               std::function<void()> child_callback,
                               std::function<void()> child_error_callback,
                               std::function<void()> parent_exit_callback)
    : pid_file(std::move(pid_file_path)),
      log_file(std::move(log_file_path)),
      on_child(std::move(child_callback)),
      on_child_error(std::move(child_error_callback)),
      on_parent_exit(std::move(parent_exit_callback)) {}

namespace {

// The mask of the daemon is 0, so modes are given as they are to be: a pid file or a log that
// everybody may write is an invitation.
constexpr mode_t file_mode = 0644;
constexpr mode_t directory_mode = 0755;

[[noreturn]] void leave(const std::function<void()>& callback, int status) {
  callback();
  std::exit(status);
}

/// Makes `target` refer to the file; errno tells why not.
bool redirect(int target, const char* file, int flags) {
  const int descriptor = open(file, flags, file_mode);
  if (descriptor < 0) return false;
  if (descriptor == target) return true;
  const bool duplicated = dup2(descriptor, target) >= 0;
  close(descriptor);
  return duplicated;
}

/// Not freopen: when that fails it leaves descriptors 1 and 2 closed, for the next socket to take,
/// and stray output then goes out as datagrams.
void redirect_standard_streams(const std::string& log_file) {
  redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
  path::check_or_create_directory(log_file, true, directory_mode, path::create_policy::optimistic);
  constexpr int appending = O_WRONLY | O_CREAT | O_APPEND;
  if (redirect(STDOUT_FILENO, log_file.c_str(), appending) &&
      redirect(STDERR_FILENO, log_file.c_str(), appending)) {
    return;
  }
  const int error = errno;
  CV_LOG(ErrorMessage) << "DAEMON: failed to open log file \"" << log_file << "\"; error [" << error
                       << "]: " << strerror(error);
  redirect(STDOUT_FILENO, "/dev/null", O_WRONLY);
  redirect(STDERR_FILENO, "/dev/null", O_WRONLY);
}

/// An error that has been logged already leaves false behind.
bool write_pid_file(const std::string& pid_file) {
  const int descriptor =
      open(pid_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, file_mode);
  if (descriptor < 0) {
    const int error = errno;
    CV_LOG(ErrorMessage) << "DAEMON: failed to open pid file \"" << pid_file << "\"; error ["
                         << error << "]: " << strerror(error);
    return false;
  }
  const bool written = dprintf(descriptor, "%d", static_cast<int>(getpid())) > 0;
  const int error = errno;
  struct stat status {};
  // An empty pid file would stand for a daemon that there is not.
  if (!written && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
    unlink(pid_file.c_str());
  }
  close(descriptor);
  if (!written) {
    CV_LOG(ErrorMessage) << "DAEMON: failed to write pid file \"" << pid_file << "\"; error ["
                         << error << "]: " << strerror(error);
  }
  return written;
}

/// Leaves the parent's session, directory and terminal; false after an ERROR line.
bool become_daemon(const DaemonModeArgs& args) {
  umask(0);
  redirect_standard_streams(args.log_file);
  if (setsid() < 0) {
    const int error = errno;
    CV_LOG(ErrorMessage) << "DAEMON: failed to create SID for daemon process; error [" << error
                         << "]: " << strerror(error);
    return false;
  }
  if (chdir(args.working_directory.c_str()) != 0) {
    CV_LOG(ErrorMessage) << "DAEMON: failed to change working directory to "
                         << args.working_directory;
    return false;
  }
  return args.pid_file.empty() || write_pid_file(args.pid_file);
}

}  // namespace

void switch_to_daemon_mode(const DaemonModeArgs& args) {
  CV_LOG(SystemMessage) << "DAEMON: starting application in daemon mode";
  // What is still buffered would be written by both processes.
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) {
    const int error = errno;
    CV_LOG(ErrorMessage) << "DAEMON: failed to fork process; error [" << error
                         << "]: " << strerror(error);
    leave(args.on_parent_exit, EXIT_FAILURE);
  }
  if (child > 0) leave(args.on_parent_exit, EXIT_SUCCESS);
  args.on_child();
  if (!become_daemon(args)) leave(args.on_child_error, EXIT_FAILURE);
}

}  // namespace cv::app
