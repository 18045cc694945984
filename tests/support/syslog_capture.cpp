#include "support/syslog_capture.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <syslog.h>

namespace cv::test {

static std::atomic<SyslogCapture*> active_capture{nullptr};

SyslogCapture::SyslogCapture() { active_capture = this; }

SyslogCapture::~SyslogCapture() { active_capture = nullptr; }

std::vector<SyslogLine> SyslogCapture::lines() const {
  const std::lock_guard lock(m_mutex);
  return m_lines;
}

void SyslogCapture::add(SyslogLine line) {
  const std::lock_guard lock(m_mutex);
  m_lines.push_back(std::move(line));
}

}  // namespace cv::test

extern "C" void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (auto* capture = cv::test::active_capture.load()) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    capture->add({priority & LOG_FACMASK, LOG_PRI(priority), text});
  } else {
    vsyslog(priority, format, arguments);
  }
  va_end(arguments);
}
