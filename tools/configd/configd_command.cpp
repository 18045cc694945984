#include "tools/configd/configd_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <optional>
#include <sys/file.h>
#include <unistd.h>

#include "core/clock.h"
#include "log/log.h"
#include "log/log_sinks.h"
#include "messaging/messaging_message_broker.h"
#include "tools/command_line.h"
#include "tools/configd/embedded_broker.h"
#include "tools/configd/event_texts.h"
#include "tools/configd/pacer.h"
#include "tools/configd/request_handler.h"
#include "tools/configd/request_queue.h"
#include "tools/configd/site.h"
#include "tools/configd/state_file.h"
#include "tools/configd/topic_creation.h"
#include "tools/log_to_standard_error.h"
#include "tools/number_option.h"
#include "tools/progress_bar.h"
#include "tools/stop_signals.h"
#include "tools/text_file.h"

namespace cv::tools {

namespace {

// A partition of the embedded broker keeps 5 MB, and a consumer that falls behind skips over what is
// gone without a word. At this rate it may be 5 seconds behind; fetches alone can take one.
constexpr uint64_t embedded_rate_bytes = 1000000;

/// Answers and announces over the broker until stopped.
class Configd {
 public:
  Configd(const ConfigdOptions& options, Site& site, StopSignals& stop)
      : m_options(options), m_site(site), m_stop(stop), m_pacer(options.rate_bytes) {}

  /// False when there is no Kafka client to work with.
  bool connect(const messaging::ClientProperties& properties) {
    messaging::MessageBrokerSettings settings;
    settings.brokers = m_options.brokers;
    settings.properties = properties;
    settings.group_id = m_options.group;
    settings.topics = {m_options.request_topic};
    settings.on_message = [this](const unsigned char* data, size_t size) {
      m_requests.push_body(data, size);
    };
    settings.consume_timeout = 100;
    settings.interrupted = [this] { return m_stop.check(); };
    m_broker.emplace(std::move(settings));
    return m_broker->usable();
  }

  /// Until the stop signal.
  void run() {
    int64_t look_at_us = steady_clock().now_us();
    int64_t announce_at_us = after_s(m_options.announce_interval_s);
    while (!m_stop.stopped()) {
      m_stop.wait_readable_until(m_requests.descriptor(), std::min(look_at_us, announce_at_us));
      greet();
      if (const auto request = m_requests.pop()) answer(*request);
      const int64_t now_us = steady_clock().now_us();
      bool tell = now_us >= announce_at_us;
      if (now_us >= look_at_us) {
        tell = m_site.look() || tell;
        look_at_us = after_s(m_options.look_interval_s);
      }
      if (!tell) continue;
      announce();
      announce_at_us = after_s(m_options.announce_interval_s);
    }
  }

 private:
  static int64_t after_s(double seconds) {
    if (seconds <= 0) return INT64_MAX;
    return steady_clock().now_us() + static_cast<int64_t>(seconds * 1e6);
  }

  /// Nodes that were here before are told to ask for the versions, as soon as this manager hears
  /// their requests and again whenever it may have missed some.
  void greet() {
    const uint64_t assignments = m_broker->assignments();
    if (assignments == m_greeted_assignments) return;
    m_greeted_assignments = assignments;
    publish(Answer{m_options.broadcast_topic, manager_started_event()});
  }

  void answer(const std::string& request) {
    answer_request(request, m_site.snapshot(), [this](const Answer& one) { return publish(one); });
  }

  void announce() {
    const Snapshot& now = m_site.snapshot();
    publish(Answer{m_options.broadcast_topic,
                   versions_event(now.sample_version, now.dead_air_version)});
  }

  bool publish(const Answer& answer) {
    const std::vector<unsigned char> body = event_body(answer.json);
    if (!m_stop.sleep_until(m_pacer.reserve(steady_clock().now_us(), body.size()))) return false;
    m_broker->send_compressed(answer.topic, body.data(), body.size());
    return true;
  }

  const ConfigdOptions& m_options;
  Site& m_site;
  StopSignals& m_stop;
  Pacer m_pacer;
  RequestQueue m_requests;
  uint64_t m_greeted_assignments = 0;
  // Last: its consumer thread pushes into m_requests until it is joined.
  std::optional<messaging::MessageBroker> m_broker;
};

/// Keeps a second manager from the state, while it lives: the two would give one version to two contents,
/// and the one that saves last would take the other's versions back.
class StateLock {
 public:
  StateLock() = default;
  ~StateLock() {
    if (m_descriptor >= 0) ::close(m_descriptor);
  }
  StateLock(const StateLock&) = delete;
  StateLock& operator=(const StateLock&) = delete;

  /// False when another one has it. The lock's file stays, beside the state, which itself is replaced with
  /// every change.
  bool take(const std::string& state_path, StopSignals& stop) {
    m_descriptor = ::open((state_path + ".lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
    // One that was killed takes a moment to go, its embedded broker with it.
    for (int tries = 0; ::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0; ++tries) {
      // Where no file can be made or locked, what can be done is left to the state file.
      if (errno != EWOULDBLOCK) return true;
      if (tries == 10 || !stop.sleep_until(steady_clock().now_us() + 100000)) return false;
    }
    return true;
  }

 private:
  int m_descriptor = -1;
};

bool start_site(const ConfigdOptions& options, std::optional<Site>& site, std::string& error) {
  auto state =
      StateFile::open(options.state_path, static_cast<uint64_t>(std::time(nullptr)), error);
  if (!state) return false;
  site.emplace(
      SiteSettings{options.sample_directory, options.rules_path, options.settings.drop_common},
      std::move(*state),
      fingerprint_reader(options.sample_directory, options.settings.fingerprint));
  ProgressBar bar("fingerprinting");
  return site->start([&](std::size_t done, std::size_t total) { bar.update(done, total); }, error);
}

std::vector<std::string> topics_of(const ConfigdOptions& options) {
  std::vector<std::string> topics = {options.request_topic, options.broadcast_topic};
  topics.insert(topics.end(), options.node_topics.begin(), options.node_topics.end());
  return topics;
}

bool start_embedded(ConfigdOptions& options, std::optional<EmbeddedBroker>& broker,
                    std::string& error) {
  auto started = EmbeddedBroker::start(topics_of(options), error);
  if (!started) return false;
  broker.emplace(std::move(*started));
  options.brokers = broker->address();
  if (options.rate_bytes == 0) options.rate_bytes = embedded_rate_bytes;
  return true;
}

void fill_in(ConfigdOptions& options) {
  if (options.state_path.empty()) options.state_path = options.rules_path + ".state";
  // A group of its own each time: joining one again after an unclean end can take most of a minute,
  // and old offsets are of no use here.
  if (options.group.empty()) {
    options.group =
        "corvanth_configd_" + std::to_string(::getpid()) + "_" + std::to_string(std::time(nullptr));
  }
}

}  // namespace

std::string kafka_conf_text(const std::string& brokers, const ConfigdOptions& options) {
  return "kafka_broker = " + brokers + "\nkafka_topic_request = " + options.request_topic +
         "\nkafka_topic_broadcast = " + options.broadcast_topic + "\n";
}

int run_configd(ConfigdOptions options) {
  const LogToStandardError logging;
  const auto fail = [](const std::string& error) {
    CV_LOG(ErrorMessage) << "CONFIGD: " << error;
    return exit_failed;
  };
  fill_in(options);
  const auto properties = messaging::read_client_properties(options.properties_path);
  if (!properties) return exit_failed;
  StopSignals stop;
  std::string error;
  StateLock lock;
  if (!lock.take(options.state_path, stop)) {
    return fail(options.state_path +
                ": another configd uses it; give this one a --state of its own");
  }
  std::optional<Site> site;
  if (!start_site(options, site, error)) return fail(error);
  std::optional<EmbeddedBroker> embedded;
  if (options.embedded_broker && !start_embedded(options, embedded, error)) return fail(error);
  if (!options.kafka_conf_path.empty() &&
      !replace_file(options.kafka_conf_path, kafka_conf_text(options.brokers, options), error)) {
    return fail(error);
  }
  if (!embedded) create_topics(options.brokers, *properties, topics_of(options));
  Configd configd(options, *site, stop);
  if (!configd.connect(*properties)) return fail("the Kafka clients could not be made");
  const Snapshot& now = site->snapshot();
  CV_LOG(SystemMessage) << "CONFIGD: ready with " << now.packets.size()
                        << " sample(s), sample configuration version (" << now.sample_version
                        << "), dead-air configuration version (" << now.dead_air_version << ")";
  if (embedded) std::cout << "broker " << embedded->address() << std::endl;
  configd.run();
  CV_LOG(SystemMessage) << "CONFIGD: stopped";
  return exit_done;
}

void add_configd_command(CLI::App& app, int& status) {
  auto options = std::make_shared<ConfigdOptions>();
  CLI::App* command =
      app.add_subcommand("configd", "Tell media nodes what to look for: a configuration manager");
  command->add_option("--samples", options->sample_directory, "folder of recordings")
      ->required()
      ->check(CLI::ExistingDirectory);
  command->add_option("--rules", options->rules_path, "rules file")
      ->required()
      ->check(CLI::ExistingFile);
  command->add_option("--state", options->state_path,
                      "state file, kept from run to run (default: RULES.state)");
  add_sample_settings(*command, options->settings);
  auto* brokers = command->add_option("--brokers", options->brokers, "Kafka, HOST:PORT[,...]");
  auto* embedded = command->add_flag("--embedded-broker", options->embedded_broker,
                                     "be the Kafka broker too; for demos and tests");
  brokers->excludes(embedded);
  command
      ->add_option("--kafka-properties", options->properties_path,
                   "file of librdkafka properties (TLS, SASL, ...), one property=value a line")
      ->check(CLI::ExistingFile)
      ->excludes(embedded);
  command->add_option("--node-topic", options->node_topics,
                      "a node's own topic, to be made before the node asks; may be repeated");
  command->add_option("--write-kafka-conf", options->kafka_conf_path,
                      "write the Kafka settings file for nodes here");
  command->add_option("--topic-request", options->request_topic, "where nodes ask")
      ->capture_default_str();
  command->add_option("--topic-broadcast", options->broadcast_topic, "where all nodes listen")
      ->capture_default_str();
  command->add_option("--group", options->group, "consumer group (default: a new one each run)");
  command->add_option("--look-every", options->look_interval_s, "seconds between looks for changes")
      ->check(number_between(0.01, 3600.0))
      ->capture_default_str();
  command
      ->add_option("--announce-every", options->announce_interval_s,
                   "seconds between repeated announcements of the versions, 0 for none")
      ->check(number_between(0.0, 86400.0))
      ->capture_default_str();
  command
      ->add_option("--rate", options->rate_bytes,
                   "most bytes a second to send, 0 for no limit (with the embedded broker 1 MB)")
      ->check(&whole_number_complaint);
  command->callback([options, &status] {
    if (options->brokers.empty() && !options->embedded_broker) {
      throw CLI::RequiredError("--brokers or --embedded-broker");
    }
    status = run_configd(*options);
  });
}

}  // namespace cv::tools
