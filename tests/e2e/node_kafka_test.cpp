// A node against a real broker: in which order broker, configuration manager, topics and node come must
// not matter; neither how much there is to load, nor how many nodes listen.
//
// One broker serves every test here, and each test has topics of its own, which do not exist yet.

#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <signal.h>
#include <string>

#include "e2e/kafka_site.h"

namespace cv::test {
namespace {

std::string kafka(const std::string& command) { return kafka_script(command, KAFKA_DIR); }

class NodeKafka : public testing::Test, protected KafkaSite {
 protected:
  NodeKafka() : KafkaSite(kafka("address")) { add_recording(english_prompts().front()); }
};

TEST_F(NodeKafka, StartsBeforeTheManagerAndBeforeEveryTopic) {
  start_node();
  ASSERT_TRUE(node_logged("message delivered to request_")) << node().output();
  start_manager();
  EXPECT_TRUE(node_is_ready()) << node().output();
  stop_node();
}

TEST_F(NodeKafka, StartsAgainAtOnceAfterAStopAndAfterACrash) {
  start_manager({"--node-topic", node_topic()});
  const char* before = "node started";
  for (const int end : {SIGTERM, SIGKILL, SIGTERM}) {
    const auto since = std::chrono::steady_clock::now();
    start_node();
    EXPECT_TRUE(node_is_ready()) << node().output();
    print_recovery(before, since);
    before = end == SIGTERM ? "node stopped" : "node killed";
    if (end == SIGTERM) {
      stop_node();
    } else {
      node().send_signal(SIGKILL);
      EXPECT_EQ(node().wait_exit(), 128 + SIGKILL);
    }
  }
}

TEST_F(NodeKafka, StartsBeforeTheBroker) {
  kafka("down");
  start_node();
  EXPECT_TRUE(node_logged("MESSAGE_BROKER: consumer startup failed")) << node().output();
  kafka("up");
  const auto since = std::chrono::steady_clock::now();
  start_manager();
  EXPECT_TRUE(node_is_ready()) << node().output();
  print_recovery("broker down at the start", since);
  const std::string log = node().output();
  EXPECT_NE(log.find("SERVICE: topics have been assigned after the configurations"), log.npos)
      << log;
  stop_node();
}

/// Every frame of it has a point.
Recording noise(const std::string& name, double seconds) {
  static std::minstd_rand random;
  Recording recording{name, std::vector<int16_t>(static_cast<size_t>(seconds * 8000))};
  for (int16_t& sample : recording.samples) sample = static_cast<int16_t>(random());
  return recording;
}

TEST_F(NodeKafka, TenThousandSamplesAndTheLargestEvent) {
  constexpr size_t count = 10000;
  for (size_t i = 2; i < count; ++i) add_recording(noise("noise" + std::to_string(i), 0.5));
  // As large as a Kafka message may be, but for two hundredths, and larger by as much.
  add_recording(noise("largest", 700));
  add_recording(noise("beyond", 730));
  start_manager();
  EXPECT_TRUE(manager().wait_for_output("recording [beyond.wav]: too long: its fingerprint takes"));
  const auto since = std::chrono::steady_clock::now();
  // Without the events themselves in the log.
  start_node("log_level=ERROR");
  EXPECT_TRUE(node_loaded(count, 150)) << node().output().substr(0, 5000);
  print_recovery("10,000 samples loaded", since);
  ASSERT_TRUE(node_is_ready());
  EXPECT_TRUE(finds(english_prompts().front(), 1));
  stop_node();
}

TEST_F(NodeKafka, EveryNodeGetsEveryBroadcast) {
  KafkaSite second(broker(), "", topics());
  start_manager({"--announce-every", "1"});
  start_node();
  second.start_node();
  for (KafkaSite* site : {static_cast<KafkaSite*>(this), &second}) {
    ASSERT_TRUE(site->node_is_ready()) << site->node().output();
    for (int broadcast = 0; broadcast < 3; ++broadcast) {
      const size_t from = site->node().output().size();
      EXPECT_TRUE(site->node_logged("SERVICE: event [config_versions] received", from));
    }
  }
  const Recording added = english_prompts()[1];
  add_recording(added);
  for (KafkaSite* site : {static_cast<KafkaSite*>(this), &second}) {
    ASSERT_TRUE(
        site->node_logged("SERVICE: config [corvanth_sample_configuration] version updated"));
    EXPECT_TRUE(site->node_loaded(2)) << site->node().output();
    EXPECT_TRUE(site->finds(added, 1)) << site->node().output();
    site->stop_node();
  }
}

}  // namespace
}  // namespace cv::test
