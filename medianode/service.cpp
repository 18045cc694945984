#include "medianode/service.h"

#include <chrono>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "app/app_build_version.h"
#include "core/thread.h"
#include "log/log.h"
#include "media/media_packet_reader.h"
#include "medianode/media_pipeline.h"
#include "medianode/node_identity.h"
#include "medianode/report_manager.h"
#include "medianode/statistic_service.h"

namespace cv::mn {

namespace {

// The broker's time-out callback runs after every empty poll: the wait for samples that do not come
// ends on time, and an event is handled as soon as it is there.
constexpr uint64_t consume_timeout_ms = 1;

constexpr int database_check_ms = 100;

// At 1,500 calls this takes the receiving thread from 29 % of a processor to 18 %. A finding needs
// tenths of a second of audio; even the system's default receive buffer holds 166 packets, and 1,000
// calls send 50 in this time.
constexpr int32_t gather_us = 500;

/// A worker that is stopped when its scope ends.
class RunningThread {
 public:
  explicit RunningThread(Thread& thread) : m_thread(thread), m_error(thread.start()) {
    if (m_error != 0) {
      CV_LOG(ErrorMessage) << "SERVICE: failed to start a thread, error (" << m_error
                           << "): " << strerror(m_error);
    }
  }
  ~RunningThread() {
    if (started()) m_thread.stop();
  }
  RunningThread(const RunningThread&) = delete;
  RunningThread& operator=(const RunningThread&) = delete;

  bool started() const { return m_error == 0; }

 private:
  Thread& m_thread;
  const int m_error;
};

StatisticService& statistic_service(const Configuration& configuration) {
  StatisticService& service = StatisticService::Instance;
  service.m_port = configuration.port;
  service.m_port_known = true;
  service.m_logging_enabled = configuration.statistic_logging_enabled;
  return service;
}

}  // namespace

Service::Service() : KafkaService("medianode"), m_first_swap_result(m_first_swap.get_future()) {}

void Service::on_pre_start() {
  CV_LOG(SystemMessage) << "build version: \"" << app::build_time() << ' '
                        << app::build_identifier() << '"';
}

void Service::on_set_kafka_params(std::string& group_name, std::string& topic) {
  group_name = topic = node_identity(m_kafka_config->kafka_broker, m_config->port);
}

bool Service::on_start() {
  set_log_level();
  if (m_config->port == 0) {
    CV_LOG(ErrorMessage) << "SERVICE: media node port must be specified, use \"--args "
                            "Port=<number>\" in execution command";
    return false;
  }
  m_database_dispatcher.set_on_swap([this](bool built) { on_database_swapped(built); });
  m_dead_air_dispatcher.on_dead_air_config(
      rc_ptr<DeadAirConfig>(new DeadAirConfig(0, default_segment_detection(*m_config))));

  // From here on each part lives until this function ends, whichever way it does, and they stop in
  // the reverse order: packet reader, pipeline, reports, Kafka, statistics, and last the socket.
  net::Socket media_socket(std::make_unique<net::Socket::Buffer>(),
                           static_cast<int>(m_config->media_receive_buffer_bytes));
  media_socket.set_sources(m_config->media_sources);
  StatisticService& statistics = statistic_service(*m_config);
  const RunningThread statistics_running(statistics);

  // Events are handled as soon as the dispatcher's constructor listens, so before it has an address
  // to send from: a handler that sends waits for it.
  std::promise<messaging::EventDispatcher*> dispatcher_made;
  const auto made = dispatcher_made.get_future().share();
  ControlEvents events(m_config, m_database_dispatcher, m_dead_air_dispatcher,
                       {m_kafka_config->kafka_topic_request, m_kafka_topic},
                       [made](const std::string& topic, const std::string& json) {
                         made.get()->dispatch(topic, json);
                       });
  messaging::EventDispatcher dispatcher(broker_settings(), events.handlers());
  dispatcher_made.set_value(&dispatcher);
  if (!dispatcher.usable()) {
    CV_LOG(ErrorMessage) << "SERVICE: the Kafka clients could not be made";
    return false;
  }

  if (!wait_for_first_database(events, dispatcher)) return true;

  if (!media_socket.open(m_config->port, 0)) {
    media_socket.close();
    return false;
  }
  ReportManager report_manager(m_config, &statistics.m_report_manager);
  const RunningThread report_manager_running(report_manager);
  MediaPipeline pipeline(m_config, m_database_dispatcher, m_dead_air_dispatcher, report_manager,
                         statistics.m_stream_manager);
  media::PacketReader packet_reader(statistics.m_packet_reader, pipeline.manager(),
                                    &pipeline.manager());
  const RunningThread packet_reader_running(packet_reader);
  if (!report_manager_running.started() || !packet_reader_running.started()) return false;

  receive_media(media_socket, packet_reader);
  return true;
}

void Service::set_log_level() const {
  if (m_config->log_level < log::Level::ERROR) {
    throw std::runtime_error("impossible to set log level stricter than 'error' level");
  }
  log::Logger::m_instance.level = m_config->log_level;
}

messaging::MessageBrokerSettings Service::broker_settings() {
  messaging::MessageBrokerSettings settings;
  settings.brokers = m_kafka_config->kafka_broker;
  settings.group_id = m_kafka_group;
  settings.properties = m_kafka_properties;
  settings.topics = {m_kafka_config->kafka_topic_broadcast, m_kafka_topic};
  settings.on_timeout = [this] { m_database_dispatcher.on_event_timeout(); };
  settings.consume_timeout = consume_timeout_ms;
  settings.interrupted = &Service::stop_requested;
  return settings;
}

void Service::on_database_swapped(bool built) {
  // The main thread looks every database_check_ms. Waking it could come too late for its wait, and
  // then end the first receive as if by a signal.
  std::call_once(m_first_swap_once, [&] { m_first_swap.set_value(built); });
}

// A topic is read from its first assignment on. An assignment that comes late, because the brokers
// do or because the node's topic was just created, skips the answers to whatever was asked before
// it: then the questions are asked again. Without that the node would wait for ever.
bool Service::wait_for_first_database(ControlEvents& events,
                                      const messaging::EventDispatcher& dispatcher) {
  uint64_t assignments = dispatcher.assignments();
  request_configurations(events);
  while (m_first_swap_result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    wait_for_signal(database_check_ms);
    if (stop_requested()) return false;
    if (const uint64_t now = dispatcher.assignments(); now != assignments) {
      assignments = now;
      CV_LOG(SystemMessage) << "SERVICE: topics have been assigned after the configurations were "
                               "requested, requesting them again";
      request_configurations(events);
    }
  }
  if (!m_first_swap_result.get()) {
    CV_LOG(WarningMessage)
        << "SERVICE: database receiving failure; hope it will be fixed with next "
           "configuration update";
  }
  return !stop_requested();
}

void Service::request_configurations(ControlEvents& events) {
  for (const char* name : ControlEvents::m_configs) {
    // Without a broker each request takes seconds.
    if (!stop_requested()) events.event_request_config(name);
  }
}

void Service::receive_media(net::Socket& socket, media::PacketReader& packet_reader) {
  socket.set_interrupt(wake_descriptor(), &Service::acknowledge_wake);
  socket.set_gathering(gather_us);
  net::Socket::Buffer& buffer = socket.read();
  while (!stop_requested()) {
    buffer.length = socket.read(buffer.data, sizeof buffer.data);
    if (buffer.length != 0) packet_reader.read_from(buffer.data, buffer.length);
    report_signals();
  }
  socket.set_interrupt(-1, nullptr);
}

}  // namespace cv::mn
