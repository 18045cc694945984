#include "app/app_kafka_service.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <librdkafka/rdkafkacpp.h>
#include <regex>

#include "app/app_build_version.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"

namespace {

using cv::test::LogCapture;

class TalkingService : public cv::app::KafkaService<cv::conf::Configuration> {
 public:
  TalkingService() : KafkaService("talking") { m_config_file = "/nowhere"; }
  void on_set_kafka_params(std::string& group, std::string& topic) override {
    EXPECT_EQ(group, "corvanthtalking");
    EXPECT_EQ(topic, "corvanthtalking");
    group = "group of " + m_kafka_config->kafka_broker;
    topic = "topic";
  }
  bool connected() const { return static_cast<bool>(m_kafka_config); }
};

class KafkaServiceTest : public testing::Test {
 protected:
  void set_path(const std::string& path) { setenv("CORVANTH_KAFKA_CONF", path.c_str(), 1); }
  void TearDown() override { unsetenv("CORVANTH_KAFKA_CONF"); }

  const cv::test::TemporaryDirectory m_directory;
};

TEST_F(KafkaServiceTest, ReadsTheSettingsThenAsksForGroupAndTopic) {
  set_path(m_directory.file("kafka.conf", "kafka_broker=127.0.0.1:9092\n"));
  LogCapture log;
  TalkingService service;
  EXPECT_TRUE(service.do_start());
  EXPECT_TRUE(service.connected());
  const auto texts = log.texts();
  const std::string tag = "SYSTEM app_kafka_service SERVICE: ";
  const auto first = std::find_if(texts.begin(), texts.end(), [&](const std::string& text) {
    return text == tag + "kafka build version:   " + cv::app::build_identifier();
  });
  ASSERT_NE(first, texts.end());
  EXPECT_TRUE(std::regex_match(
      *(first + 1), std::regex(tag + R"(kafka running version: [0-9.]+ \(0x[0-9a-f]{8}\))")))
      << *(first + 1);
  EXPECT_EQ(
      log.has(cv::log::Level::WARNING, "SERVICE: kafka running version differs to expected 1.5.2"),
      RdKafka::version_str() != "1.5.2");
  EXPECT_EQ(texts[texts.size() - 2], tag + "kafka topic is set to [topic]");
  EXPECT_EQ(texts.back(), tag + "kafka group is set to [group of 127.0.0.1:9092]");
}

TEST_F(KafkaServiceTest, WithoutReadableSettingsItDoesNotStart) {
  for (const std::string& path :
       {m_directory.path("missing.conf"), m_directory.file("bad.conf", "a=b=c\n")}) {
    set_path(path);
    LogCapture log;
    TalkingService service;
    EXPECT_FALSE(service.do_start()) << path;
    EXPECT_FALSE(service.connected());
    EXPECT_FALSE(log.has_containing("kafka topic"));
  }
}

TEST_F(KafkaServiceTest, TheEnvironmentMayNameAnotherFile) {
  set_path("");
  EXPECT_EQ(cv::app::kafka_config_path(), "/etc/tarnwell/corvanth/kafka.conf");
  set_path("/other.conf");
  EXPECT_EQ(cv::app::kafka_config_path(), "/other.conf");
}

TEST(BuildVersion, HasItsForms) {
  EXPECT_TRUE(std::regex_match(cv::app::build_identifier(), std::regex("[0-9a-f]{16}@.+")));
  EXPECT_TRUE(std::regex_match(
      cv::app::build_time(),
      std::regex(R"(\d\d(0[1-9]|1[0-2])([0-2]\d|3[01]):([01]\d|2[0-3])[0-5]\d[0-5]\d)")));
}

}  // namespace
