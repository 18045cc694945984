// The media node itself: puts its parts together, waits for the first sample database, receives
// media until a signal stops it, and takes everything down in the reverse order.
//
// Threads: everything here runs on the main thread, but for the first database's notification, which
// comes on the message broker's consumer thread.
#pragma once

#include <future>
#include <mutex>
#include <string>

#include "app/app_kafka_service.h"
#include "medianode/configuration.h"
#include "medianode/control_events.h"
#include "medianode/database_dispatcher.h"
#include "medianode/dead_air_dispatcher.h"
#include "messaging/messaging_event_dispatcher.h"
#include "net/net_socket.h"

namespace cv::media {
class PacketReader;
}

namespace cv::mn {

class Service : public app::KafkaService<Configuration> {
 public:
  Service();

  void on_pre_start() override;
  /// The node's whole run. True also when a signal ends it before it was ready to receive. Throws
  /// std::runtime_error when the configured log level would silence errors.
  bool on_start() override;
  /// Both become the node's identity.
  void on_set_kafka_params(std::string& group_name, std::string& topic) override;

 private:
  void set_log_level() const;
  messaging::MessageBrokerSettings broker_settings();
  void on_database_swapped(bool built);
  /// False when a signal ended the wait.
  bool wait_for_first_database(ControlEvents& events, const messaging::EventDispatcher& dispatcher);
  static void request_configurations(ControlEvents& events);
  static void receive_media(net::Socket& socket, media::PacketReader& packet_reader);

  std::once_flag m_first_swap_once;
  std::promise<bool> m_first_swap;
  std::future<bool> m_first_swap_result;
  DatabaseDispatcher m_database_dispatcher;
  DeadAirDispatcher m_dead_air_dispatcher;
};

}  // namespace cv::mn
