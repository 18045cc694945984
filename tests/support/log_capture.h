// Collects the log lines written while it lives, in place of the sink in use before.
//
// Create it before the threads whose lines it is to see, and join them before it goes: the logger
// record is read without a lock. The collected lines themselves are safe on any thread.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "log/log.h"

namespace cv::test {

struct LogLine {
  log::Level level;
  std::string module;
  std::string text;
};

class LogCapture {
 public:
  /// Lines less severe than `threshold` are dropped, as the real sinks drop them.
  explicit LogCapture(log::Level threshold = log::Level::TRACE);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> lines() const;
  /// Each line as "LEVEL module text".
  std::vector<std::string> texts() const;
  /// The lines that begin with `tag`, each as "LEVEL rest".
  std::vector<std::string> tagged(const std::string& tag) const;
  /// Whether a line of this level has exactly this text.
  bool has(log::Level level, const std::string& text) const;
  bool has_containing(const std::string& part) const;
  std::size_t count_containing(const std::string& part) const;
  void clear();

 private:
  static void write(void* context, const char* file, int line, const log::Message& message);

  mutable std::mutex m_mutex;
  std::vector<LogLine> m_lines;
  log::LoggerImpl::Write m_previous_write;
  void* m_previous_context;
  log::Level m_previous_level;
};

}  // namespace cv::test
