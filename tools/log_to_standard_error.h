// A command's log: what is worth a person's attention, on standard error.
#pragma once

#include "log/log.h"
#include "log/log_sinks.h"

namespace cv::tools {

/// Standard error for the log, while it lives. Create it before the threads that log.
class LogToStandardError {
 public:
  LogToStandardError() {
    // Every message delivered is an INFO line of the broker, and samples come by the hundred.
    log::Logger::m_instance.level = log::Level::WARNING;
    log::open_stdlog();
  }
  ~LogToStandardError() { log::close_log(); }
  LogToStandardError(const LogToStandardError&) = delete;
  LogToStandardError& operator=(const LogToStandardError&) = delete;
};

/// Warnings and errors only, on standard error, while it lives: for a command that runs parts of the
/// node, whose milestones are none of the command's. Create it before the threads that log.
class ComplaintsToStandardError {
 public:
  ComplaintsToStandardError() {
    log::Logger::m_instance.level = log::Level::WARNING;
    log::Logger::m_instance.write = &write;
  }
  ~ComplaintsToStandardError() { log::close_log(); }
  ComplaintsToStandardError(const ComplaintsToStandardError&) = delete;
  ComplaintsToStandardError& operator=(const ComplaintsToStandardError&) = delete;

 private:
  static void write(void* context, const char* file, int line, const log::Message& message) {
    if (message.level != log::Level::SYSTEM) log::Stdlog::write(context, file, line, message);
  }
};

}  // namespace cv::tools
