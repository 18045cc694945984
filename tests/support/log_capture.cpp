#include "support/log_capture.h"

#include <algorithm>

namespace cv::test {

LogCapture::LogCapture(log::Level threshold)
    : m_previous_write(log::Logger::m_instance.write),
      m_previous_context(log::Logger::m_instance.context),
      m_previous_level(log::Logger::m_instance.level) {
  log::Logger::m_instance.write = &LogCapture::write;
  log::Logger::m_instance.context = this;
  log::Logger::m_instance.level = threshold;
}

LogCapture::~LogCapture() {
  log::Logger::m_instance.write = m_previous_write;
  log::Logger::m_instance.context = m_previous_context;
  log::Logger::m_instance.level = m_previous_level;
}

void LogCapture::write(void* context, const char* file, int, const log::Message& message) {
  if (message.level > log::Logger::m_instance.level) return;
  auto* self = static_cast<LogCapture*>(context);
  const std::lock_guard lock(self->m_mutex);
  self->m_lines.push_back({message.level, file, message.text()});
}

std::vector<LogLine> LogCapture::lines() const {
  const std::lock_guard lock(m_mutex);
  return m_lines;
}

static std::string level_name(const LogLine& line) {
  return log::level_to_string[static_cast<std::size_t>(line.level)];
}

std::vector<std::string> LogCapture::texts() const {
  std::vector<std::string> texts;
  for (const LogLine& line : lines()) {
    texts.push_back(level_name(line) + " " + line.module + " " + line.text);
  }
  return texts;
}

std::vector<std::string> LogCapture::tagged(const std::string& tag) const {
  std::vector<std::string> texts;
  for (const LogLine& line : lines()) {
    if (line.text.starts_with(tag)) {
      texts.push_back(level_name(line) + " " + line.text.substr(tag.size()));
    }
  }
  return texts;
}

bool LogCapture::has(log::Level level, const std::string& text) const {
  const auto all = lines();
  return std::any_of(all.begin(), all.end(),
                     [&](const LogLine& line) { return line.level == level && line.text == text; });
}

bool LogCapture::has_containing(const std::string& part) const {
  return count_containing(part) > 0;
}

std::size_t LogCapture::count_containing(const std::string& part) const {
  const auto all = lines();
  return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const LogLine& line) {
    return line.text.find(part) != line.text.npos;
  }));
}

void LogCapture::clear() {
  const std::lock_guard lock(m_mutex);
  m_lines.clear();
}

}  // namespace cv::test
