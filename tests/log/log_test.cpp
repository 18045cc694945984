#include "log/log.h"

#include <gtest/gtest.h>
#include <iostream>
#include <regex>

#include "log/log_sinks.h"

namespace {

using cv::log::Level;

/// Everything written to standard error's stream while it lives.
class LogTest : public testing::Test {
 protected:
  ~LogTest() override {
    std::cerr.rdbuf(m_previous);
    cv::log::close_log();
    cv::log::Logger::m_instance.level = Level::INFO;
  }

  std::ostringstream m_text;
  std::streambuf* m_previous = std::cerr.rdbuf(m_text.rdbuf());
};

TEST_F(LogTest, LinesBearTimeLevelModuleAndTextUpToTheThreshold) {
  const std::string head = R"(\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d\.\d{6} \| )";
  const char* const levels[] = {"SYSTEM ", "ERROR  ", "WARNING", "INFO   ", "DEBUG  ", "TRACE  "};
  std::string expected;
  CV_LOG(SystemMessage) << "before opening";
  cv::log::open_stdlog();
  std::cerr.setstate(std::ios_base::badbit);  // an earlier write failed, the disk was full
  for (const std::string threshold : {"SYSTEM", "ERROR", "WARNING", "INFO", "DEBUG", "TRACE"}) {
    ASSERT_TRUE(cv::log::try_parse_level(threshold, cv::log::Logger::m_instance.level));
    CV_LOG(SystemMessage) << "TAG: " << 5;
    CV_LOG(ErrorMessage) << "TAG: " << 5;
    CV_LOG(WarningMessage) << "TAG: " << 5;
    CV_LOG(InfoMessage) << "TAG: " << 5;
    CV_LOG(DebugMessage) << "TAG: " << 5;
    CV_LOG(TraceMessage) << "TAG: " << 5;
    for (const std::string level : levels) {
      expected += head + level + R"( \| log_test:\d+ \| TAG: 5\n)";
      if (level.starts_with(threshold)) break;
    }
  }
  cv::log::close_log();
  CV_LOG(SystemMessage) << "after closing";
  EXPECT_TRUE(std::regex_match(m_text.str(), std::regex(expected))) << m_text.str();
}

}  // namespace
