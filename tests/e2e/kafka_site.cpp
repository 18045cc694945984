#include "e2e/kafka_site.h"

#include <cstdio>

#include "support/shell.h"
#include "support/sound_folder.h"
#include "utils/utils_str.h"

namespace cv::test {

namespace {

/// Prompts of a folder below the language's have its name in theirs.
std::string flat_name(const Recording& recording) {
  return utils::str::replace(recording.name, "/", "_");
}

}  // namespace

std::string kafka_script(const std::string& command, const std::string& folder) {
  return printed_by(std::string(KAFKA_SCRIPT) + " " + command + " --dir " + folder);
}

KafkaBroker::KafkaBroker(const std::vector<std::string>& settings) { up(settings); }

KafkaBroker::~KafkaBroker() { kafka_script("down", m_folder / "broker"); }

void KafkaBroker::up(const std::vector<std::string>& settings) {
  std::string command = "up";
  for (const std::string& setting : settings) command += " --set '" + setting + "'";
  m_address = kafka_script(command, m_folder / "broker");
}

KafkaSite::KafkaSite(const std::string& broker, const std::string& properties_file,
                     const std::string& topics)
    : m_broker(broker), m_properties_file(properties_file), m_topics(topics) {
  std::string settings = "kafka_broker = " + m_broker +
                         "\nkafka_topic_request = " + request_topic() +
                         "\nkafka_topic_broadcast = broadcast_" + m_topics + "\n";
  if (!properties_file.empty()) settings += "kafka_properties_file = " + properties_file + "\n";
  m_sandbox.write_etc("kafka.conf", settings);
  m_recordings.write("rules.json", R"({"rules":[{"id":1,"samples":["*"],"threshold":5}]})");
}

void KafkaSite::add_recording(const Recording& recording) {
  write_sound(m_recordings / (flat_name(recording) + ".wav"), recording.samples, 8000, 1);
}

void KafkaSite::start_manager(const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {executable("corvanth"), "configd"};
  const std::pair<const char*, std::string> files_and_topics[] = {
      {"--brokers", m_broker},
      {"--samples", m_recordings.path()},
      {"--rules", m_recordings / "rules.json"},
      {"--topic-request", request_topic()},
      {"--topic-broadcast", "broadcast_" + m_topics},
      {"--kafka-properties", m_properties_file}};
  for (const auto& [option, value] : files_and_topics) {
    if (!value.empty()) arguments.insert(arguments.end(), {option, value});
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

bool KafkaSite::reported(const CallPackets& call, const Recording& recording) {
  const std::string name = flat_name(recording);
  const std::string uuid = utils::str::print_uuid(call.key().uuid.data());
  return eventually([&] {
    for (const std::string& text : m_reports.texts()) {
      if (text.find(uuid) != text.npos && text.find(name) != text.npos) return true;
    }
    return false;
  });
}

bool KafkaSite::finds(const Recording& recording, uint8_t call_number) {
  const CallPackets call(call_number);
  send_start(call);
  send_audio(call, 0, recording.samples);
  return reported(call, recording);
}

void print_recovery(const char* what, std::chrono::steady_clock::time_point since) {
  std::printf("RECOVERY %s: %.1f s\n", what,
              std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count());
}

}  // namespace cv::test
