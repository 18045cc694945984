// A node's start against a real broker: in which order broker, configuration manager, topics and node
// come must not matter.
//
// One broker serves every test here, and each test has topics of its own, which do not exist yet.

#include <gtest/gtest.h>
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

TEST_F(NodeKafka, StartsAfterTheManagerWithoutATopicOfItsOwn) {
  start_manager();
  start_node();
  EXPECT_TRUE(node_is_ready()) << node().output();
  stop_node();
}

TEST_F(NodeKafka, StartsAgainAtOnceAfterAStopAndAfterACrash) {
  start_manager({"--node-topic", "corvanth_medianode_127o0o0o1_" + std::to_string(media_port())});
  for (const int end : {SIGTERM, SIGKILL, SIGTERM}) {
    start_node();
    EXPECT_TRUE(node_is_ready()) << node().output();
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
  start_manager();
  EXPECT_TRUE(node_is_ready()) << node().output();
  const std::string log = node().output();
  const size_t again = log.find("SERVICE: topics have been assigned after the configurations");
  ASSERT_NE(again, log.npos) << log;
  EXPECT_NE(log.find("| SYSTEM ", log.rfind('\n', again)), log.npos);
  EXPECT_LT(log.find("| SYSTEM ", log.rfind('\n', again)), again) << "at the level of milestones";
  stop_node();
}

TEST_F(NodeKafka, EveryNodeGetsEveryBroadcast) {
  KafkaSite second(*this);
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
