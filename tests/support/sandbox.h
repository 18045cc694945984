// A private view of the file system for the executables under test: their /dev/log, /etc and
// /var/log are folders of the test, so that a run touches nothing of the machine and several run
// side by side. Made of a mount namespace of the child process (a user namespace too without root).
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/temporary_folder.h"

namespace cv::test {

/// Owns a folder and the socket that the children's syslog() calls arrive at.
class Sandbox {
 public:
  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  /// A folder for the test's own files, the same inside and outside.
  const std::string& path() const { return m_folder.path(); }
  std::string write_file(const std::string& name, const std::string& content) const;
  std::string read_file(const std::string& name) const;
  /// Content for a file that the child sees as /etc/tarnwell/corvanth/NAME.
  void write_etc(const std::string& name, const std::string& content) const;

  /// Every syslog datagram so far, "<PRI>rest" as it came, each ended by a line feed.
  std::string syslog() const;
  /// The syslog daemon takes nothing any more, as far as its queue of ten lines and one more, or goes on.
  void hang_syslog(bool hangs);
  /// The daemon has ended: /dev/log is gone.
  void end_syslog();
  /// Another daemon has made /dev/log anew.
  void start_syslog();

  /// Called between fork and exec in the child; true when the view is in place.
  bool enter() const;

 private:
  struct Mount {
    std::string from;
    std::string to;
  };

  void collect_syslog(int socket);

  TemporaryFolder m_folder;
  std::vector<Mount> m_mounts;
  int m_syslog_socket = -1;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_syslog;
  bool m_syslog_hangs = false;
  // The socket's queue holds ten lines, and behind a full one a child's syslog() would block.
  std::thread m_collector;
};

}  // namespace cv::test
