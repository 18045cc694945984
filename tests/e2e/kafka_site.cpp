#include "e2e/kafka_site.h"

#include <arpa/inet.h>
#include <cstdio>
#include <signal.h>
#include <stdexcept>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "support/sound_folder.h"
#include "utils/utils_str.h"

namespace cv::test {

namespace {

constexpr uint8_t all_features = 0x3C;
constexpr size_t packet_samples = 160;
constexpr int stop_limit_s = 15;

/// Prompts of a folder below the language's have its name in theirs.
std::string flat_name(const Recording& recording) {
  return utils::str::replace(recording.name, "/", "_");
}

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

std::string kafka_script(const std::string& command, const std::string& folder) {
  const std::string line = std::string(KAFKA_SCRIPT) + " " + command + " --dir " + folder;
  FILE* pipe = popen(line.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + line);
  std::string text;
  for (int character = 0; (character = fgetc(pipe)) != EOF;) text += static_cast<char>(character);
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + line);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

KafkaBroker::KafkaBroker(const std::vector<std::string>& settings) { up(settings); }

KafkaBroker::~KafkaBroker() { kafka_script("down", m_folder / "broker"); }

void KafkaBroker::up(const std::vector<std::string>& settings) {
  std::string command = "up";
  for (const std::string& setting : settings) command += " --set '" + setting + "'";
  m_address = kafka_script(command, m_folder / "broker");
}

/// A text that no other test run on the same broker has.
static std::string unique_text() {
  static int count = 0;
  return std::to_string(getpid()) + "_" + std::to_string(time(nullptr)) + "_" +
         std::to_string(++count);
}

KafkaSite::KafkaSite(const std::string& broker, const std::string& properties_file)
    : KafkaSite(broker, properties_file, "request_" + unique_text(), "broadcast_" + unique_text()) {
}

KafkaSite::KafkaSite(const std::string& broker, const std::string& properties_file,
                     const std::string& request_topic, const std::string& broadcast_topic)
    : m_broker(broker),
      m_properties_file(properties_file),
      m_media_port(free_udp_port()),
      m_request_topic(request_topic),
      m_broadcast_topic(broadcast_topic) {
  std::string settings = "kafka_broker = " + m_broker +
                         "\nkafka_topic_request = " + m_request_topic +
                         "\nkafka_topic_broadcast = " + m_broadcast_topic + "\n";
  if (!properties_file.empty()) settings += "kafka_properties_file = " + properties_file + "\n";
  m_sandbox.write_etc("kafka.conf", settings);
  m_recordings.write("rules.json", R"({"rules":[{"id":1,"samples":["*"],"threshold":5}]})");
  m_sender.open(0, 0);
}

void KafkaSite::add_recording(const Recording& recording) {
  write_sound(m_recordings / (flat_name(recording) + ".wav"), recording.samples, 8000, 1);
}

void KafkaSite::start_node(const std::string& settings) {
  m_node = std::make_unique<ChildProcess>(
      m_sandbox, std::vector<std::string>{executable("corvanthmedianode"), "--args",
                                          "port=" + std::to_string(m_media_port) + "," + settings});
}

void KafkaSite::stop_node() {
  m_node->send_signal(SIGTERM);
  EXPECT_EQ(m_node->wait_exit(stop_limit_s), 0) << m_node->output();
}

void KafkaSite::start_manager(const std::vector<std::string>& options) {
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
  if (!m_properties_file.empty()) {
    arguments.insert(arguments.end(), {"--kafka-properties", m_properties_file});
  }
  arguments.insert(arguments.end(), options.begin(), options.end());
  m_manager = std::make_unique<ChildProcess>(m_sandbox, arguments);
  ASSERT_TRUE(m_manager->wait_for_output("CONFIGD: ready")) << m_manager->output();
}

bool KafkaSite::node_is_loaded(size_t samples) {
  const std::string log = m_node->output();
  const size_t building =
      log.rfind("configuration(s) and " + std::to_string(samples) + " sample(s)");
  return building != log.npos && log.find("successfully built", building) != log.npos;
}

bool KafkaSite::node_loaded(size_t samples, int seconds) {
  return eventually([&] { return node_is_loaded(samples); }, seconds);
}

void KafkaSite::start_call(const CallPackets& call) {
  media::StartFields fields;
  fields.features = all_features;
  fields.flags = media::StartPacket::flag_rule;
  fields.rule = 1;
  fields.report_addr = htonl(INADDR_LOOPBACK);
  fields.report_port = htons(m_reports.port());
  send(call.start(fields));
}

void KafkaSite::send_audio(const CallPackets& call, std::span<const int16_t> samples,
                           uint32_t first_seq) {
  uint32_t seq = first_seq;
  for (size_t at = 0; at < samples.size(); at += packet_samples, ++seq) {
    const size_t count = std::min(packet_samples, samples.size() - at);
    send(call.data(0, seq, samples.subspan(at, count), seq * 20000));
    // The default receive buffer holds some 160 of these packets.
    if (seq % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void KafkaSite::send(const media::Datagram& datagram) {
  const auto* bytes = reinterpret_cast<const char*>(datagram.data());
  EXPECT_TRUE(m_sender.send(loopback(m_media_port), bytes, datagram.size()));
}

bool KafkaSite::reported(const CallPackets& call, const Recording& recording) {
  const std::string name = flat_name(recording);
  char uuid_end[13];
  snprintf(uuid_end, sizeof uuid_end, "aabbccddee%02x", call.key().uuid.back());
  return eventually([&] {
    for (const std::string& text : m_reports.texts()) {
      if (text.find(uuid_end) != text.npos && text.find(name) != text.npos) return true;
    }
    return false;
  });
}

bool KafkaSite::finds(const Recording& recording, uint8_t call_number) {
  const CallPackets call(call_number);
  start_call(call);
  send_audio(call, recording.samples, 1);
  return reported(call, recording);
}

}  // namespace cv::test
