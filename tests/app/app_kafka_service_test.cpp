#include "app/app_kafka_service.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <librdkafka/rdkafkacpp.h>
#include <regex>

#include "app/app_build_version.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace {

struct TalkingService : cv::app::KafkaService<cv::conf::PortExtension<cv::conf::Configuration>> {
  explicit TalkingService(const std::string& config_file) : KafkaService("talking") {
    m_config_file = config_file;
    m_args = "port=6000";
  }
  void on_set_kafka_params(std::string& group, std::string& topic) override {
    EXPECT_EQ(m_config->port, 6000) << "the arguments come behind the file";
    topic = group + " " + topic;
    group = "group of " + m_kafka_config->kafka_broker;
  }
};

TEST(KafkaService, ReadsFileArgumentsAndKafkaSettingsThenAsksForGroupAndTopic) {
  const cv::test::TemporaryFolder folder;
  setenv("CORVANTH_KAFKA_CONF", folder.write("kafka.conf", "kafka_broker=h:9092\n").c_str(), 1);
  const cv::test::LogCapture log;
  EXPECT_TRUE(TalkingService(folder.write("file", "port=5000\n")).do_start());
  std::string text;
  for (const auto& line : log.texts()) text += line + "\n";
  const std::string tag = "SYSTEM app_kafka_service SERVICE: kafka ";
  const std::regex expected(tag + "build version:   [0-9a-f]{16}@.+\n" + tag +
                            "running version: " + RdKafka::version_str() +
                            R"( \(0x[0-9a-f]{8}\)\n(WARNING.*\n)?SYSTEM.*\n.*\n)" + tag +
                            R"(topic is set to \[corvanthtalking corvanthtalking\]\n)" + tag +
                            R"(group is set to \[group of h:9092\]\n$)");
  EXPECT_TRUE(std::regex_search(text, expected)) << text;
  EXPECT_EQ(log.has_containing("SERVICE: kafka running version differs to expected 1.5.2"),
            RdKafka::version_str() != "1.5.2");
  setenv("CORVANTH_KAFKA_CONF", "", 1);
  EXPECT_EQ(cv::app::kafka_config_path(), "/etc/tarnwell/corvanth/kafka.conf");
  const std::regex time(R"(\d\d(0[1-9]|1[0-2])([0-2]\d|3[01]):([01]\d|2[0-3])[0-5]\d[0-5]\d)");
  EXPECT_TRUE(std::regex_match(cv::app::build_time(), time));
}

}  // namespace
