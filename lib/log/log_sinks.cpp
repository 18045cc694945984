#include "log/log_sinks.h"

#include <iostream>
#include <new>
#include <syslog.h>

#include "log/log_syslog_thread.h"

namespace cv::log {

static bool below_threshold(const Message& message) {
  return message.level > Logger::m_instance.level;
}

void Stdlog::write(void*, const char* file, int line, const Message& message) {
  if (below_threshold(message)) return;
  std::ostringstream text;
  text << format_time() << message_delimiter;
  format_message(text, file, line, message);
  text.clear();
  text << '\n';
  const std::string written = text.str();
  // One call a line: standard error is unbuffered, so lines of two threads do not interleave. And
  // past the stream's state: a write that fails once (a full disk) must not silence every later line.
  std::cerr.rdbuf()->sputn(written.data(), static_cast<std::streamsize>(written.size()));
}

void Syslog::write(const char* file, int line, LocalLevel facility, const Message& message) {
  if (below_threshold(message)) return;
  const int priority =
      static_cast<int>(facility) | level_to_syslevel[static_cast<std::size_t>(message.level)];
  SyslogThread& thread = SyslogThread::instance();
  try {
    std::ostringstream text;
    format_message(text, file, line, message);
    text.clear();
    text << '\n';
    thread.write(priority, std::move(text).str());
  } catch (const std::bad_alloc&) {
    thread.note_lost();
  }
}

void Syslog::write(void*, const char* file, int line, const Message& message) {
  write(file, line, LocalLevel::USER, message);
}

void Syslog::close(void*) {
  if (!SyslogThread::instance().given_up()) closelog();
}

void open_stdlog() {
  Logger::m_instance.write = &Stdlog::write;
  Logger::m_instance.close = nullptr;
  Logger::m_instance.context = nullptr;
}

void open_syslog(const char* identity) {
  openlog(identity, LOG_PID | LOG_CONS | LOG_NDELAY, LOG_DAEMON);
  Logger::m_instance.write = &Syslog::write;
  Logger::m_instance.close = &Syslog::close;
  Logger::m_instance.context = nullptr;
}

void close_log() {
  LoggerImpl& logger = Logger::m_instance;
  if (logger.close != nullptr) logger.close(logger.context);
  logger.close = nullptr;
  logger.context = nullptr;
  logger.write = &LoggerImpl::dummy_write;
}

}  // namespace cv::log
