#include "conf/conf_configuration.h"

#include <gtest/gtest.h>

#include "conf/conf_extensions.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace {

/// Answers every name with the code that the name spells, and notes what it was given.
class Scripted : public cv::conf::Configuration {
 public:
  int set_flag(const std::string& name, std::stringstream& error) override {
    given += name + ";";
    error << "reason";
    if (name == "odd") return cv::conf::bad_format;
    if (name == "refused") return cv::conf::refused;
    return name == "strange" ? cv::conf::unknown : cv::conf::applied;
  }
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    const int answer = set_flag(name, error);
    given.insert(given.size() - 1, "=" + value);
    return answer;
  }
  std::string given;
};

TEST(Configuration, LogsWhatTheSetterAnswersAndEndsAtTheFirstRefusal) {
  const struct {
    const char *args, *level, *text;  // of the last line
  } cases[] = {
      {"a=1", "SYSTEM", "option [a] is set to [1]"},
      {"strange=1", "WARNING", "option [strange] is unknown"},
      {"odd=1,a", "ERROR", "failed to set option [odd] to [1]: unexpected value format"},
      {"refused=1,a", "ERROR", "failed to set option [refused] to [1]: reason"},
      {"a", "SYSTEM", "flag [a] applied"},
      {"a=1,,x,a=b=c,d=1", "ERROR", "incorrect option format at position [2]"},
  };
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    EXPECT_EQ(Scripted().parse_args(c.args), c.level != std::string("ERROR")) << c.args;
    EXPECT_EQ(log.texts().back(),
              c.level + std::string(" conf_configuration CONFIGURATION: ") + c.text);
  }
}

TEST(Configuration, CutsLinesAndArgumentsIntoNamesAndValues) {
  const struct {
    const char *text, *from_line, *from_args;
  } cases[] = {
      {"  key = value\r", "key=value;", "  key=value\r;"},
      {"a==b", "a=b;", ""},
      {"  # a", "", "  # a;"},
      {",a=1, b=2,", "", "a=1; b=2;"},
      {"a=h1:9092,,h2:9092,b=2", "", "a=h1:9092,h2:9092;b=2;"},
      {"a=x_;y,b", "a=x_;y,b;", "a=x,y;b;"},
  };
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    Scripted from_line, from_args;
    from_line.parse_line(c.text, 0);
    from_args.parse_args(c.text);
    EXPECT_EQ(from_line.given, c.from_line) << c.text;
    EXPECT_EQ(from_args.given, c.from_args) << c.text;
  }
}

TEST(Configuration, ReadsAFileUntilALineIsRefused) {
  const cv::test::TemporaryFolder folder;
  cv::test::LogCapture log;
  Scripted config;
  EXPECT_FALSE(config.parse_file(folder.write("node.conf", "#\n\n  port = 5000\nodd\nport=6")));
  EXPECT_EQ(config.given, "port=5000;odd;");
  EXPECT_FALSE(config.parse_file(folder.write("third.conf", "\na\na=b=c")));
  EXPECT_TRUE(log.has_containing("CONFIGURATION: incorrect option format at line 2: \"a=b=c\""));
  EXPECT_FALSE(config.parse_file(folder.path()));
  EXPECT_TRUE(log.has_containing("CONFIGURATION: failed to read file [" + folder.path() + "]"));
}

TEST(Extensions, AcceptExactValuesOnlyAndAHostSwitchesTheTransferOn) {
  cv::conf::StatExtension<cv::conf::LogExtenstion<cv::conf::Configuration>> config;
  std::stringstream error;
  for (const char* value : {"True", "1", "", "10.0.0.5", "trace"})
    for (const char* name : {"log_level", "statistic_logging_enabled", "statistic_transfer_enabled",
                             "statistic_transfer_host"})
      EXPECT_EQ(config.set_value(name, value, error), -1) << name << value;
  EXPECT_FALSE(config.statistic_transfer_enabled);
  EXPECT_EQ(config.set_value("statistic_transfer_host", "10.0.0.5:9000-9001", error), 0);
  EXPECT_EQ(config.statistic_transfer_host.host, "10.0.0.5");
  EXPECT_EQ(config.statistic_transfer_host.port, 9000);
  EXPECT_TRUE(config.statistic_transfer_enabled && config.statistic_logging_enabled);
  EXPECT_EQ(config.set_value("statistic_transfer_enabled", "false", error), 0);
  EXPECT_FALSE(config.statistic_transfer_enabled);
}

}  // namespace
