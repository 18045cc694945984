#include "conf/conf_configuration.h"

#include <gtest/gtest.h>

#include "conf/conf_extensions.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace {

/// Answers every name with the code that the name spells.
struct Scripted : cv::conf::Configuration {
  int set_flag(const std::string& name, std::stringstream& error) override {
    error << "reason";
    if (name == "odd") return cv::conf::bad_format;
    if (name == "refused") return cv::conf::refused;
    return name == "strange" ? cv::conf::unknown : cv::conf::applied;
  }
  int set_value(const std::string& name, const std::string&, std::stringstream& error) override {
    return set_flag(name, error);
  }
};

TEST(Configuration, LogsWhatTheSetterAnswersAndEndsAtTheFirstRefusal) {
  const struct {
    const char *args, *level, *text;  // of the last line
  } cases[] = {
      {"strange=1,a=1", "SYSTEM", "option [a] is set to [1]"},
      {"a=1,strange=1", "WARNING", "option [strange] is unknown"},
      {"odd=1,a", "ERROR", "failed to set option [odd] to [1]: unexpected value format"},
      {"refused,a", "ERROR", "failed to apply flag [refused]: reason"},
      {"odd,strange", "ERROR", "failed to apply flag [odd]: unexpected format"},
      {"strange,a", "SYSTEM", "flag [a] applied"},
      {"a=1,,x,a=b=c,d=1", "ERROR", "incorrect option format at position [2]"},
  };
  cv::test::LogCapture log;
  for (const auto& c : cases) {
    EXPECT_EQ(Scripted().parse_args(c.args), c.level != std::string("ERROR")) << c.args;
    EXPECT_EQ(log.texts().back(),
              c.level + std::string(" conf_configuration CONFIGURATION: ") + c.text);
  }
  const cv::test::TemporaryFolder folder;
  EXPECT_FALSE(Scripted().parse_file(folder.write("node.conf", "#\n\na\na=b=c\nb")));
  EXPECT_EQ(log.texts().back(),
            "ERROR conf_configuration CONFIGURATION: incorrect option format at line 3: \"a=b=c\"");
  EXPECT_FALSE(Scripted().parse_file(folder.path()));
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
