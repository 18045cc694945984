#include "conf/conf_configuration.h"

#include <gtest/gtest.h>

#include "conf/conf_extensions.h"
#include "conf/conf_kafka_configuration.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"

namespace {

using cv::log::Level;
using Lines = std::vector<std::string>;

using Stack = cv::conf::ConfigVersionExtension<cv::conf::StatExtension<
    cv::conf::PortExtension<cv::conf::LogExtenstion<cv::conf::Configuration>>>>;

/// Answers every name with the code that the name spells, and remembers what it was given.
class Scripted : public cv::conf::Configuration {
 public:
  int set_flag(const std::string& name, std::stringstream& error) override {
    given.push_back(name);
    error << "reason";
    return code_of(name);
  }
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    given.push_back(name + "=" + value);
    error << "reason";
    return code_of(name);
  }
  Lines given;

 private:
  static int code_of(const std::string& name) {
    if (name == "odd") return cv::conf::bad_format;
    if (name == "refused") return cv::conf::refused;
    if (name == "mute") return -7;
    return name == "strange" ? cv::conf::unknown : cv::conf::applied;
  }
};

/// The lines a parse logged, each as "LEVEL text".
Lines lines_of(const cv::test::LogCapture& log) {
  Lines lines;
  for (const auto& line : log.lines()) {
    EXPECT_EQ(line.module, "conf_configuration");
    EXPECT_TRUE(line.text.starts_with("CONFIGURATION: ")) << line.text;
    lines.push_back(std::string(cv::log::level_to_string[static_cast<size_t>(line.level)]) + " " +
                    line.text.substr(15));
  }
  return lines;
}

TEST(Configuration, LogsWhatTheSetterAnswers) {
  const struct {
    const char* line;
    bool goes_on;
    const char* expected;
  } cases[] = {
      {"a=1", true, "SYSTEM option [a] is set to [1]"},
      {"strange=1", true, "WARNING option [strange] is unknown"},
      {"odd=1", false, "ERROR failed to set option [odd] to [1]: unexpected value format"},
      {"refused=1", false, "ERROR failed to set option [refused] to [1]: reason"},
      {"mute=1", false, "ERROR failed to set option [mute] to [1]"},
      {"a", true, "SYSTEM flag [a] applied"},
      {"strange", true, "WARNING flag [strange] is unknown"},
      {"odd", false, "ERROR failed to apply flag [odd]: unexpected format"},
      {"refused", false, "ERROR failed to apply flag [refused]: reason"},
      {"mute", false, "ERROR failed to apply flag [mute]"},
      {"a=b=c", false, "ERROR incorrect option format at line 7: \"a=b=c\""},
      {" = ", false, "ERROR incorrect option format at line 7: \" = \""},
  };
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    EXPECT_EQ(Scripted().parse_line(c.line, 7), c.goes_on) << c.line;
    EXPECT_EQ(lines_of(log), Lines{c.expected});
  }
}

TEST(Configuration, CutsLinesAndArgumentsIntoNamesAndValues) {
  const struct {
    const char* text;
    Lines from_line, from_args;
  } cases[] = {
      {"key = value", {"key=value"}, {"key=value"}},
      {"  key=value\r", {"key=value"}, {"  key=value\r"}},
      {"key=", {"key"}, {"key"}},
      {"key= \t", {"key"}, {"key"}},
      {"key", {"key"}, {"key"}},
      {"=value", {"value"}, {"=value"}},
      {"a==b", {"a=b"}, {}},
      {"# a=1", {}, {"# a=1"}},
      {"  # a", {}, {"  # a"}},
      {"a=1 # b", {"a=1 # b"}, {"a=1 # b"}},
      {"", {}, {}},
      {" \t ", {}, {""}},
      {",a=1,", {",a=1,"}, {"a=1"}},
      {"a=1,b", {"a=1,b"}, {"a=1", "b"}},
      {"a=1, b=2", {}, {"a=1", " b=2"}},
      {"a=h1:9092,,h2:9092,b=2", {}, {"a=h1:9092,h2:9092", "b=2"}},
      {"a=x_;y", {"a=x_;y"}, {"a=x,y"}},
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

TEST(Configuration, ArgumentsAreLoggedAndEndAtTheFirstRefusal) {
  const struct {
    const char* args;
    bool goes_on;
    Lines expected;
  } cases[] = {
      {"", true, {"SYSTEM reading from args: "}},
      {"a=1,,x,a=b=c,d=1",
       false,
       {"SYSTEM reading from args: a=1,,x,a=b=c,d=1", "SYSTEM option [a] is set to [1,x]",
        "ERROR incorrect option format at position [2]"}},
      {"odd=1,a=1",
       false,
       {"SYSTEM reading from args: odd=1,a=1",
        "ERROR failed to set option [odd] to [1]: unexpected value format"}},
  };
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    EXPECT_EQ(Scripted().parse_args(c.args), c.goes_on);
    EXPECT_EQ(lines_of(log), c.expected);
  }
}

TEST(Configuration, ReadsAFileUntilALineIsRefused) {
  const cv::test::TemporaryDirectory directory;
  const std::string path = directory.file(
      "node.conf", "# comment\n\n  port = 5000  \nunknown_key=1\nverbose\nport=70000\nport=6000\n");
  Stack config;
  {
    cv::test::LogCapture log;
    EXPECT_FALSE(config.parse_file(path));
    EXPECT_EQ(
        lines_of(log),
        (Lines{"SYSTEM reading from file [" + path + "]", "SYSTEM option [port] is set to [5000]",
               "WARNING option [unknown_key] is unknown", "WARNING flag [verbose] is unknown",
               "ERROR failed to set option [port] to [70000]: unexpected value format"}));
  }
  EXPECT_EQ(config.port, 5000);

  cv::test::LogCapture log;
  EXPECT_FALSE(config.parse_file(directory.file("third.conf", "port=1\n\na=b=c")));
  EXPECT_EQ(lines_of(log).back(), "ERROR incorrect option format at line 2: \"a=b=c\"");
}

TEST(Configuration, AMissingNameIsNoErrorAndAnUnreadableFileIs) {
  const cv::test::TemporaryDirectory directory;
  const std::string missing = directory.path("none.conf");
  const struct {
    std::string path;
    bool goes_on;
    Lines expected;
  } cases[] = {
      {"", true, {"INFO file is not specified, default values are used"}},
      {missing, false, {"ERROR failed to open file [" + missing + "]"}},
      {directory.path(),
       false,
       {"SYSTEM reading from file [" + directory.path() + "]",
        "ERROR failed to read file [" + directory.path() + "]"}},
  };
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    EXPECT_EQ(Stack().parse_file(c.path), c.goes_on) << c.path;
    EXPECT_EQ(lines_of(log), c.expected);
  }
}

TEST(Extensions, AcceptExactValuesOnly) {
  const struct {
    const char *name, *value;
    int expected;
  } cases[] = {
      {"log_level", "TRACE", 0},
      {"log_level", "trace", -1},
      {"port", "0", 0},
      {"port", "65535", 0},
      {"port", "65536", -1},
      {"port", "12x", -1},
      {"Port", "12", 1},
      {"statistic_logging_enabled", "false", 0},
      {"statistic_logging_enabled", "True", -1},
      {"statistic_transfer_enabled", "1", -1},
      {"statistic_transfer_host", "10.0.0.5:9000", 0},
      {"statistic_transfer_host", "10.0.0.5", -1},
      {"kafka_broker", "x", 1},
      {"", "", 1},
  };
  for (const auto& c : cases) {
    std::stringstream error;
    EXPECT_EQ(Stack().set_value(c.name, c.value, error), c.expected) << c.name << "=" << c.value;
    EXPECT_EQ(error.str(), "");
  }
}

TEST(Extensions, EachKeySetsItsOwnField) {
  cv::test::LogCapture log;
  Stack config;
  EXPECT_EQ(config.log_level, Level::INFO);
  EXPECT_TRUE(config.statistic_logging_enabled);
  EXPECT_FALSE(config.statistic_transfer_enabled);
  EXPECT_TRUE(config.parse_args(
      "log_level=DEBUG,port=5000,statistic_logging_enabled=false,statistic_transfer_enabled=false,"
      "statistic_transfer_host=10.0.0.5:9000-9001"));
  EXPECT_EQ(config.log_level, Level::DEBUG);
  EXPECT_EQ(config.port, 5000);
  EXPECT_FALSE(config.statistic_logging_enabled);
  EXPECT_TRUE(config.statistic_transfer_enabled) << "naming a host switches the transfer on";
  EXPECT_EQ(config.statistic_transfer_host.host, "10.0.0.5");
  EXPECT_EQ(config.statistic_transfer_host.port, 9000);
  EXPECT_TRUE(config.parse_args("statistic_transfer_enabled=false"));
  EXPECT_FALSE(config.statistic_transfer_enabled);
  EXPECT_FALSE(config.parse_args("port=12x"));
  EXPECT_EQ(config.port, 12) << "refused, and stored all the same";

  cv::conf::KafkaConfiguration kafka;
  EXPECT_TRUE(kafka.parse_args(
      "kafka_broker=h1:9092,,h2:9092,kafka_topic_broadcast=all,kafka_topic_request=requests"));
  EXPECT_EQ(kafka.kafka_broker, "h1:9092,h2:9092");
  EXPECT_EQ(kafka.kafka_topic_broadcast, "all");
  EXPECT_EQ(kafka.kafka_topic_request, "requests");
}

}  // namespace
