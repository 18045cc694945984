// Collects the log lines written while it lives, in place of the sink in use before.
//
// Create it before the threads whose lines it is to see, and join them before it goes: the logger
// record is read without a lock. The collected lines themselves are safe on any thread.
#pragma once

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "log/log.h"

namespace cv::test {

class LogCapture {
 public:
  /// Lines less severe than `threshold` are dropped, as the real sinks drop them.
  explicit LogCapture(log::Level threshold = log::Level::TRACE) {
    auto& logger = log::Logger::m_instance;
    logger.write = &LogCapture::write;
    logger.context = this;
    logger.level = threshold;
  }
  ~LogCapture() {
    auto& logger = log::Logger::m_instance;
    logger.write = m_previous_write;
    logger.context = m_previous_context;
    logger.level = m_previous_level;
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Each line as "LEVEL module text".
  std::vector<std::string> texts() const {
    const std::lock_guard lock(m_mutex);
    return m_lines;
  }
  /// The lines whose text begins with `tag`, each as "LEVEL rest".
  std::vector<std::string> tagged(const std::string& tag) const {
    std::vector<std::string> found;
    for (const std::string& line : texts()) {
      const auto level = line.find(' ') + 1;
      const auto text = line.find(' ', level) + 1;
      if (line.compare(text, tag.size(), tag) != 0) continue;
      found.push_back(line.substr(0, level) + line.substr(text + tag.size()));
    }
    return found;
  }
  /// Whether a line of this level has exactly this text.
  bool has(log::Level level, const std::string& text) const {
    const auto lines = tagged(text);
    return std::find(lines.begin(), lines.end(), name_of(level) + " ") != lines.end();
  }
  std::size_t count_containing(const std::string& part) const {
    const auto lines = texts();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(),
                      [&](const std::string& line) { return line.find(part) != line.npos; }));
  }
  bool has_containing(const std::string& part) const { return count_containing(part) > 0; }
  void clear() {
    const std::lock_guard lock(m_mutex);
    m_lines.clear();
  }

  /// Called with each line's text, on the thread that writes it. Set before there are such threads.
  std::function<void(const std::string&)> on_line;

 private:
  static std::string name_of(log::Level level) {
    return log::level_to_string[static_cast<std::size_t>(level)];
  }
  static void write(void* context, const char* file, int, const log::Message& message) {
    if (message.level > log::Logger::m_instance.level) return;
    auto* self = static_cast<LogCapture*>(context);
    if (self->on_line) self->on_line(message.text());
    const std::lock_guard lock(self->m_mutex);
    self->m_lines.push_back(name_of(message.level) + " " + file + " " + message.text());
  }

  log::LoggerImpl::Write m_previous_write = log::Logger::m_instance.write;
  void* m_previous_context = log::Logger::m_instance.context;
  log::Level m_previous_level = log::Logger::m_instance.level;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_lines;
};

}  // namespace cv::test
