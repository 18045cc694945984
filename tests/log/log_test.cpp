#include "log/log.h"

#include <gtest/gtest.h>
#include <iostream>
#include <regex>

#include "log/log_sinks.h"

namespace {

using cv::log::Level;

/// Everything written to standard error's stream while it lives.
class CapturedStderr {
 public:
  CapturedStderr() : m_previous(std::cerr.rdbuf(m_text.rdbuf())) {}
  ~CapturedStderr() { std::cerr.rdbuf(m_previous); }
  std::string text() const { return m_text.str(); }

 private:
  std::ostringstream m_text;
  std::streambuf* m_previous;
};

class LogTest : public testing::Test {
 protected:
  void TearDown() override {
    cv::log::close_log();
    cv::log::Logger::m_instance.level = Level::INFO;
  }
};

TEST_F(LogTest, LevelsAreReadByTheirExactNames) {
  for (int i = 0; i < 6; ++i) {
    Level level = Level::INFO;
    EXPECT_TRUE(cv::log::try_parse_level(cv::log::level_to_string[static_cast<size_t>(i)], level));
    EXPECT_EQ(static_cast<int>(level), i);
  }
  for (const char* text : {"trace", "Info", "", "INFO ", "FATAL"}) {
    Level level = Level::WARNING;
    EXPECT_FALSE(cv::log::try_parse_level(text, level)) << text;
    EXPECT_EQ(level, Level::WARNING);
  }
}

TEST_F(LogTest, TheDelimiterBehindTheLevelStandsInOneColumn) {
  for (const char* name : cv::log::level_to_string) {
    Level level{};
    cv::log::try_parse_level(name, level);
    cv::log::Message message(level);
    message.stream << "text " << 7;
    std::ostringstream out;
    cv::log::format_message(out, "media_packet_reader", 120, message);
    EXPECT_EQ(out.str().substr(7), " | media_packet_reader:120 | text 7");
  }
  std::ostringstream out;
  cv::log::format_message(out, nullptr, 1, cv::log::InfoMessage());
  EXPECT_TRUE(out.bad());
}

TEST_F(LogTest, StandardErrorGetsTimeLevelModuleAndText) {
  cv::log::open_stdlog();
  const CapturedStderr captured;
  CV_LOG(WarningMessage) << "TAG: " << 5;
  EXPECT_TRUE(std::regex_match(
      captured.text(),
      std::regex(
          R"(\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d\.\d{6} \| WARNING \| log_test:\d+ \| TAG: 5\n)")))
      << captured.text();
}

TEST_F(LogTest, TheThresholdDropsLessSevereLinesAndNeverSystem) {
  cv::log::open_stdlog();
  cv::log::Logger::m_instance.level = Level::ERROR;
  const CapturedStderr captured;
  CV_LOG(SystemMessage) << "one";
  CV_LOG(ErrorMessage) << "two";
  CV_LOG(WarningMessage) << "three";
  CV_LOG(TraceMessage) << "four";
  EXPECT_NE(captured.text().find("one"), std::string::npos);
  EXPECT_NE(captured.text().find("two"), std::string::npos);
  EXPECT_EQ(captured.text().find("three"), std::string::npos);
  EXPECT_EQ(captured.text().find("four"), std::string::npos);
}

TEST_F(LogTest, LinesVanishBeforeOpeningAndAfterClosing) {
  const CapturedStderr captured;
  CV_LOG(SystemMessage) << "before";
  cv::log::open_stdlog();
  cv::log::close_log();
  CV_LOG(SystemMessage) << "after";
  EXPECT_EQ(captured.text(), "");
}

}  // namespace
