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

}  // namespace cv::tools
