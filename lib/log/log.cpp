#include "log/log.h"

#include <cstdio>
#include <ctime>
#include <iostream>
#include <new>
#include <sys/time.h>

namespace cv::log {

LoggerImpl Logger::m_instance;

LoggerImpl::~LoggerImpl() {
  if (close != nullptr) close(context);
}

void LoggerImpl::dummy_write(void*, const char*, int, const Message&) {}

void emit(const char* file, int line, const Message& message) noexcept {
  const LoggerImpl& logger = Logger::m_instance;
  try {
    logger.write(logger.context, file, line, message);
  } catch (const std::bad_alloc&) {
    constexpr std::string_view instead = "ERROR   | log | LOG: a line was lost: out of memory\n";
    std::cerr.rdbuf()->sputn(instead.data(), instead.size());
  }
}

std::string format_time() {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char date[64];
  strftime(date, sizeof date, "%Y.%m.%d %X", &local);
  char fraction[16];
  snprintf(fraction, sizeof fraction, ".%06ld", static_cast<long>(now.tv_usec));
  return std::string(date) + fraction;
}

std::ostream& format_message(std::ostream& out, const char* file, int line,
                             const Message& message) {
  const auto index = static_cast<std::size_t>(message.level);
  out << level_to_string[index] << level_to_spaces[index] << message_delimiter;
  if (file == nullptr) {
    out.setstate(std::ios_base::badbit);
    return out;
  }
  return out << file << ':' << line << message_delimiter << message.text();
}

bool try_parse_level(const std::string& text, Level& level) {
  for (std::size_t i = 0; i < level_to_string.size(); ++i) {
    if (text == level_to_string[i]) {
      level = static_cast<Level>(i);
      return true;
    }
  }
  return false;
}

}  // namespace cv::log
