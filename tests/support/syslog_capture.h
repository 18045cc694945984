// Collects what the process hands to syslog while it lives, instead of sending it.
//
// Linked into a test executable, syslog() of the C library is replaced by one that looks for a capture
// and, without one, passes the line on. Create the capture before the threads whose lines it is to
// see, and join them before it goes.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace cv::test {

struct SyslogLine {
  int facility;  // LOG_LOCAL1, ...
  int severity;  // LOG_NOTICE, ...
  std::string text;
};

class SyslogCapture {
 public:
  SyslogCapture();
  ~SyslogCapture();
  SyslogCapture(const SyslogCapture&) = delete;
  SyslogCapture& operator=(const SyslogCapture&) = delete;

  std::vector<SyslogLine> lines() const;
  void add(SyslogLine line);

 private:
  mutable std::mutex m_mutex;
  std::vector<SyslogLine> m_lines;
};

}  // namespace cv::test
