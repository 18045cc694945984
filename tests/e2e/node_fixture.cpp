#include "e2e/node_fixture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <iomanip>
#include <signal.h>
#include <sstream>
#include <sys/socket.h>

#include "audio/audio_fingerprint.h"
#include "audio/audio_sample_packet.h"
#include "support/recordings.h"

namespace cv::test {

namespace {

constexpr const char* request_topic = "corvanth_request";
constexpr const char* broadcast_topic = "corvanth_broadcast";
constexpr size_t packet_samples = 160;

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::string topic_of(uint16_t media_port) {
  return "corvanth_medianode_127o0o0o1_" + std::to_string(media_port);
}

}  // namespace

std::vector<int16_t> prompt(const std::string& name) {
  for (Recording& recording : english_prompts()) {
    if (recording.name == name) return std::move(recording.samples);
  }
  throw std::runtime_error("no prompt " + name);
}

NodeFixture::NodeFixture()
    : m_media_port(free_udp_port()),
      m_kafka({request_topic, broadcast_topic, topic_of(m_media_port)}) {
  m_sandbox.write_etc("kafka.conf", "kafka_broker = " + m_kafka.brokers() +
                                        "\nkafka_topic_request = " + request_topic +
                                        "\nkafka_topic_broadcast = " + broadcast_topic + "\n");
  m_sender.open(0, 0);
}

std::string NodeFixture::node_topic() const { return topic_of(m_media_port); }

void NodeFixture::start_node(const std::string& settings) {
  std::vector<std::string> command = m_launcher;
  command.insert(command.end(), {executable("corvanthmedianode"), "--args",
                                 "port=" + std::to_string(m_media_port) + "," + settings});
  m_node = std::make_unique<ChildProcess>(m_sandbox, std::move(command));
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

void NodeFixture::broadcast(const std::string& json) {
  m_kafka.produce(broadcast_topic, pack_event(json));
}

std::vector<std::string> NodeFixture::requests(size_t count) {
  std::vector<std::string> texts;
  for (const std::string& body : m_kafka.consume(request_topic, count)) {
    texts.push_back(unpack_event(body));
  }
  return texts;
}

std::string NodeFixture::sample_configuration(uint64_t version,
                                              const std::map<uint32_t, std::string>& ids) const {
  std::ostringstream json;
  json << "{\"type\":\"corvanth_sample_configuration\",\"version\":" << version << ",\"data\":[";
  const char* separator = "";
  for (const auto& [id, name] : ids) {
    json << separator << "{\"rule_id\":1,\"sample_id\":" << id
         << ",\"threshold\":4.5,\"sample_name\":\"" << name
         << "\",\"event_object\":{\"prompt\": [1, \"" << name << "\"]}}";
    separator = ",";
  }
  json << "]}";
  return json.str();
}

std::string NodeFixture::sample_event(uint32_t id, const std::string& prompt_name) const {
  std::ostringstream json;
  json << "{\"type\":\"corvanth_sample_list\",\"data\":{\"id\":" << id << ",\"hash\":\"" << std::hex
       << std::setfill('0');
  for (int byte : audio::write_sample_packet(audio::fingerprint(prompt(prompt_name)))) {
    json << std::setw(2) << byte;
  }
  json << "\"}}";
  return json.str();
}

void NodeFixture::send(const media::Datagram& datagram) {
  // Not by the socket's own send(), which has nothing to do for an empty datagram.
  const sockaddr_in to = loopback(m_media_port);
  EXPECT_EQ(sendto(m_sender.descriptor(), datagram.data(), datagram.size(), 0,
                   reinterpret_cast<const sockaddr*>(&to), sizeof to),
            static_cast<ssize_t>(datagram.size()));
}

void NodeFixture::send_start(const CallPackets& call, uint64_t rule, uint8_t features,
                             uint16_t report_port) {
  media::StartFields fields;
  fields.features = features;
  fields.flags = media::StartPacket::flag_rule;
  fields.ts = 1635500000;
  fields.rule = rule;
  fields.report_addr = htonl(INADDR_LOOPBACK);
  fields.report_port = htons(report_port);
  fields.call_id = "call-of-a-test";
  send(call.start(fields));
}

void NodeFixture::send_audio(const CallPackets& call, uint16_t side,
                             const std::vector<int16_t>& samples, uint32_t first_seq) {
  uint32_t seq = first_seq;
  for (size_t at = 0; at < samples.size(); at += packet_samples, ++seq) {
    const size_t count = std::min(packet_samples, samples.size() - at);
    send(call.data(side, seq, std::span(samples).subspan(at, count), seq * 20000));
    // The default receive buffer holds some 160 of these packets.
    if (seq % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

bool NodeFixture::syslog_has(const std::string& text) {
  return eventually([&] { return syslog().find(text) != std::string::npos; });
}

long NodeFixture::statistic(const std::string& label) const {
  const std::string text = syslog();
  const size_t at = text.rfind("* " + label);
  if (at == text.npos) return -1;
  const size_t value = text.find(": ", at);
  return std::stol(text.substr(value + 2));
}

void NodeFixture::expect_clean_stop() {
  node().send_signal(SIGTERM);
  EXPECT_EQ(node().wait_exit(), 0) << node().output();
}

}  // namespace cv::test
