#include "e2e/node_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "audio/audio_fingerprint.h"
#include "audio/audio_sample_packet.h"
#include "support/recordings.h"
#include "support/shell.h"
#include "tools/configd/event_texts.h"
#include "tools/configd/topic_creation.h"

namespace cv::test {

namespace {

/// What prints the address of a real broker; null: each test has a cluster of its own.
const char* broker_command() { return std::getenv("CORVANTH_TEST_BROKER"); }

/// A topic of this test's own on a broker that all of them share.
std::string topic(const std::string& name) {
  return broker_command() == nullptr ? name : name + "_" + unique_text();
}

std::unique_ptr<KafkaClient> make_kafka(const std::vector<std::string>& topics) {
  if (broker_command() == nullptr) return std::make_unique<MockKafka>(topics);
  auto kafka = std::make_unique<KafkaClient>(printed_by(broker_command()));
  tools::create_topics(kafka->brokers(), {}, topics);
  return kafka;
}

std::string body_of(const std::string& json) {
  const auto body = tools::event_body(json);
  return {body.begin(), body.end()};
}

}  // namespace

std::vector<int16_t> prompt(const std::string& name) {
  for (Recording& recording : english_prompts()) {
    if (recording.name == name) return std::move(recording.samples);
  }
  throw std::runtime_error("no prompt " + name);
}

NodeFixture::NodeFixture(const std::string& kafka_settings)
    : m_request_topic(topic("corvanth_request")),
      m_broadcast_topic(topic("corvanth_broadcast")),
      m_kafka(make_kafka({m_request_topic, m_broadcast_topic, node_topic()})) {
  m_sandbox.write_etc("kafka.conf", "kafka_broker = " + m_kafka->brokers() +
                                        "\nkafka_topic_request = " + m_request_topic +
                                        "\nkafka_topic_broadcast = " + m_broadcast_topic + "\n" +
                                        kafka_settings);
}

void NodeFixture::wait_for_first_requests() {
  ASSERT_EQ(requests(2).size(), 2u) << node().output() << syslog();
}

void NodeFixture::start_ready_node(const std::vector<std::string>& prompts,
                                   const std::string& settings) {
  start_node(settings);
  wait_for_first_requests();
  std::map<uint32_t, std::string> ids;
  for (const std::string& name : prompts) ids.emplace(101 + ids.size(), name);
  // Made before the node begins to wait for them: it waits five seconds.
  std::vector<std::string> samples;
  for (const auto& [id, name] : ids) samples.push_back(sample_event(id, name));
  send_to_node(sample_configuration(7, ids));
  for (const std::string& sample : samples) send_to_node(sample);
  ASSERT_TRUE(node_logged("PACKETS_READER: thread [")) << node().output();
  // On a slow machine that was a database without all its samples.
  ASSERT_TRUE(node_logged("DATABASE_DISPATCHER: database version (7) successfully built"));
}

void NodeFixture::send_to_node(const std::string& json) {
  m_kafka->produce(node_topic(), body_of(json));
}

void NodeFixture::broadcast(const std::string& json) {
  m_kafka->produce(m_broadcast_topic, body_of(json));
}

std::vector<std::string> NodeFixture::requests(size_t count) {
  for (size_t most = count;; ++most) {
    std::vector<std::string> texts;
    const auto bodies = m_kafka->consume(m_request_topic, most);
    for (const std::string& body : bodies) {
      const std::string text = decompressed(body).value().substr(1);
      if (std::find(texts.begin(), texts.end(), text) == texts.end()) {
        texts.push_back(text);
      } else {
        EXPECT_TRUE(node_logged("SERVICE: topics have been assigned after")) << "twice: " << text;
      }
    }
    if (texts.size() == count || bodies.size() < most) return texts;
  }
}

std::string NodeFixture::sample_configuration(uint64_t version,
                                              const std::map<uint32_t, std::string>& ids) const {
  std::vector<tools::SampleEntry> entries;
  for (const auto& [id, name] : ids) {
    entries.push_back({1, id, name, 4.5, R"({"prompt":[1,")" + name + "\"]}"});
  }
  return tools::configuration_event(tools::event::sample_configuration, version,
                                    tools::sample_data_json(entries));
}

std::string NodeFixture::sample_event(uint32_t id, const std::string& prompt_name) const {
  return tools::sample_event(id,
                             audio::write_sample_packet(audio::fingerprint(prompt(prompt_name))));
}

bool NodeFixture::syslog_has(const std::string& text) {
  return eventually([&] { return syslog().find(text) != std::string::npos; });
}

size_t NodeFixture::syslog_count(const std::string& text) const {
  size_t count = 0;
  const std::string log = syslog();
  for (size_t at = 0; (at = log.find(text, at)) != log.npos; ++at) ++count;
  return count;
}

}  // namespace cv::test
