// The two places a log line can go: standard error and syslog.
//
// Both drop messages below the logger's threshold. While the syslog thread runs (log_syslog_thread.h)
// lines reach syslog through it, and no writer waits for the daemon. Opening and closing happen while
// the process is single-threaded; writing may happen on any thread.
#pragma once

#include <new>

#include "log/log.h"
#include "log/log_syslog_thread.h"

namespace cv::log {

/// syslog facility codes that lines are written under.
enum class LocalLevel : int {
  USER = 8,      // the configured sink
  LOCAL0 = 128,  // the statistics block
  LOCAL1 = 136,  // START, TERM, CTRL traces and unknown-session warnings
  LOCAL7 = 184,  // DATA traces
};

/// Standard error: time, level, module:line, text, line feed.
struct Stdlog {
  static void write(void* context, const char* file, int line, const Message& message);
};

/// syslog: the same line without the time, which the syslog daemon adds itself.
struct Syslog {
  static void write(void* context, const char* file, int line, const Message& message);
  static void write(const char* file, int line, LocalLevel facility, const Message& message);
  static void close(void* context);
};

/// Hands the line whose text `text()` returns to syslog, whatever the logger's own sink is. Without
/// memory for it the line is lost, and the caller goes on.
template <typename MessageType, typename Text>
void trace(const char* file, int line, LocalLevel facility, Text text) {
  try {
    MessageType message;
    message.stream << text();
    Syslog::write(file, line, facility, message);
  } catch (const std::bad_alloc&) {
    SyslogThread::instance().note_lost();
  }
}

/// Points the logger at standard error.
void open_stdlog();

/// Opens syslog under `identity` and points the logger at it. The text must outlive the logging:
/// the system keeps the pointer.
void open_syslog(const char* identity);

/// Closes the sink in use; further lines go nowhere.
void close_log();

}  // namespace cv::log
