// A node's start against a real broker: in which order broker, configuration manager, topics and node
// come must not matter.
//
// One broker serves every test here, and each test has topics of its own, which do not exist yet.

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "support/child_process.h"
#include "support/recordings.h"
#include "support/sandbox.h"
#include "support/sound_folder.h"

namespace cv::test {
namespace {

/// Runs scripts/kafka on the tests' broker; what it printed.
std::string kafka(const std::string& command) {
  const std::string line = std::string(KAFKA_SCRIPT) + " " + command + " --dir " + KAFKA_DIR;
  FILE* pipe = popen(line.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + line);
  std::string text;
  for (int character = 0; (character = fgetc(pipe)) != EOF;) text += static_cast<char>(character);
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + line);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

class NodeKafka : public testing::Test {
 protected:
  NodeKafka() : m_broker(kafka("address")) {
    m_sandbox.write_etc("kafka.conf", "kafka_broker = " + m_broker +
                                          "\nkafka_topic_request = " + m_request_topic +
                                          "\nkafka_topic_broadcast = " + m_broadcast_topic + "\n");
    m_recordings.write("rules.json", R"({"rules":[{"id":1,"samples":["*"],"threshold":5}]})");
    const Recording prompt = english_prompts().front();
    write_sound(m_recordings / "prompt.wav", prompt.samples, 8000, 1);
  }

  void start_node() {
    m_node = std::make_unique<ChildProcess>(
        m_sandbox, std::vector<std::string>{executable("corvanthmedianode"), "--args",
                                            "port=" + std::to_string(m_media_port)});
  }
  void end_node(int signal) {
    m_node->send_signal(signal);
    EXPECT_EQ(m_node->wait_exit(), signal == SIGKILL ? 128 + SIGKILL : 0) << m_node->output();
  }
  /// Returns when it answers requests.
  void start_manager(const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {executable("corvanth"),
                                          "configd",
                                          "--brokers",
                                          m_broker,
                                          "--samples",
                                          m_recordings.path(),
                                          "--rules",
                                          m_recordings / "rules.json",
                                          "--topic-request",
                                          m_request_topic,
                                          "--topic-broadcast",
                                          m_broadcast_topic};
    arguments.insert(arguments.end(), options.begin(), options.end());
    m_manager = std::make_unique<ChildProcess>(m_sandbox, arguments);
    ASSERT_TRUE(m_manager->wait_for_output("CONFIGD: ready")) << m_manager->output();
  }
  /// The node has its database, and its media port is open.
  bool node_is_ready() { return m_node->wait_for_output("PACKETS_READER: thread ["); }
  bool node_logged(const std::string& text) { return m_node->wait_for_output(text); }

  const std::string m_broker;
  // The node's topic is called after its port; the others are new with each test too.
  const uint16_t m_media_port = static_cast<uint16_t>(10000 + getpid() % 20000);
  const std::string m_request_topic = "request_" + std::to_string(m_media_port);
  const std::string m_broadcast_topic = "broadcast_" + std::to_string(m_media_port);
  Sandbox m_sandbox;
  TemporaryFolder m_recordings;
  std::unique_ptr<ChildProcess> m_manager;
  std::unique_ptr<ChildProcess> m_node;
};

TEST_F(NodeKafka, StartsBeforeTheManagerAndBeforeEveryTopic) {
  start_node();
  ASSERT_TRUE(node_logged("message delivered to " + m_request_topic)) << m_node->output();
  start_manager();
  EXPECT_TRUE(node_is_ready()) << m_node->output();
  end_node(SIGTERM);
}

TEST_F(NodeKafka, StartsAfterTheManagerWithoutATopicOfItsOwn) {
  start_manager();
  start_node();
  EXPECT_TRUE(node_is_ready()) << m_node->output();
  end_node(SIGTERM);
}

TEST_F(NodeKafka, StartsAgainAtOnceAfterAStopAndAfterACrash) {
  start_manager({"--node-topic", "corvanth_medianode_127o0o0o1_" + std::to_string(m_media_port)});
  for (const int end : {SIGTERM, SIGKILL, SIGTERM}) {
    start_node();
    EXPECT_TRUE(node_is_ready()) << m_node->output();
    end_node(end);
  }
}

TEST_F(NodeKafka, StartsBeforeTheBroker) {
  kafka("down");
  start_node();
  EXPECT_TRUE(node_logged("MESSAGE_BROKER: consumer startup failed")) << m_node->output();
  kafka("up");
  start_manager();
  EXPECT_TRUE(node_is_ready()) << m_node->output();
  const std::string log = m_node->output();
  const size_t again = log.find("SERVICE: topics have been assigned after the configurations");
  ASSERT_NE(again, log.npos) << log;
  EXPECT_NE(log.find("| SYSTEM ", log.rfind('\n', again)), log.npos);
  EXPECT_LT(log.find("| SYSTEM ", log.rfind('\n', again)), again) << "at the level of milestones";
  end_node(SIGTERM);
}

}  // namespace
}  // namespace cv::test
