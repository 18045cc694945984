// A node against a real broker: in which order broker, configuration manager, topics and node come must
// not matter; neither how much there is to load, nor how many nodes listen.
//
// One broker serves every test here, and each test has topics of its own, which do not exist yet.

#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <signal.h>
#include <string>

#include "audio/audio_fingerprint.h"
#include "audio/audio_sample_packet.h"
#include "e2e/kafka_site.h"
#include "messaging/messaging_message_broker.h"
#include "tools/configd/event_texts.h"
#include "tools/configd/request_handler.h"
#include "tools/configd/topic_creation.h"

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

/// Hashes at random.
std::vector<audio::HashPoint> noise(uint32_t seed, size_t count) {
  std::minstd_rand random(seed);
  std::vector<audio::HashPoint> points;
  for (size_t i = 0; i < count; ++i) {
    points.push_back({static_cast<uint32_t>(random() & 0xFFFFFF), static_cast<uint32_t>(i)});
  }
  return points;
}

/// Its event has as many bytes as a Kafka message may.
std::vector<unsigned char> largest_packet() {
  const auto body_bytes = [](size_t count) {
    return tools::event_body(tools::sample_event(1, audio::write_sample_packet(noise(1, count))))
        .size();
  };
  constexpr size_t measured = 20000;
  const size_t count = measured * (tools::max_body_bytes - 10000) / body_bytes(measured);
  EXPECT_LE(body_bytes(count), tools::max_body_bytes);
  EXPECT_GT(body_bytes(count), tools::max_body_bytes * 9 / 10);
  return audio::write_sample_packet(noise(1, count));
}

TEST_F(NodeKafka, TenThousandSamplesAndTheLargestEvent) {
  constexpr uint32_t count = 10000;
  const Recording prompt = english_prompts().front();
  tools::Snapshot snapshot;
  snapshot.sample_version = snapshot.dead_air_version = 1;
  std::vector<tools::SampleEntry> entries;
  for (uint32_t id = 1; id <= count; ++id) {
    entries.push_back(
        {1, id, id == 2 ? prompt.name : "noise", 5, "{\"sample\":" + std::to_string(id) + "}"});
    snapshot.packets[id] = id == 1 ? largest_packet()
                           : id == 2
                               ? audio::write_sample_packet(audio::fingerprint(prompt.samples))
                               : audio::write_sample_packet(noise(id, 100));
  }
  snapshot.sample_data_json = tools::sample_data_json(entries);

  std::unique_ptr<messaging::MessageBroker> manager;
  messaging::MessageBrokerSettings settings;
  settings.brokers = broker();
  settings.group_id = request_topic();
  settings.topics = {request_topic()};
  settings.consume_timeout = 10;
  settings.on_message = [&](const unsigned char* data, size_t size) {
    const std::string_view json(reinterpret_cast<const char*>(data) + 1, size - 1);
    tools::answer_request(json, snapshot, [&](const tools::Answer& answer) {
      const std::vector<unsigned char> body = tools::event_body(answer.json);
      manager->send_compressed(answer.topic, body.data(), body.size());
      return true;
    });
  };
  tools::create_topics(broker(), {}, settings.topics);
  manager = std::make_unique<messaging::MessageBroker>(std::move(settings));

  const auto since = std::chrono::steady_clock::now();
  // Without the events themselves, 30 MB, in the log.
  start_node("log_level=ERROR");
  EXPECT_TRUE(node_loaded(count, 150)) << node().output().substr(0, 5000);
  std::printf("LOADED %u samples: %.1f s\n", count,
              std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count());
  ASSERT_TRUE(node_is_ready());
  EXPECT_TRUE(finds(prompt, 1));
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
