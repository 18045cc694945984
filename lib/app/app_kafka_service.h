// A service that talks Kafka: adds the Kafka settings, and the group and topic it goes by.
#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include "app/app_service.h"
#include "conf/conf_kafka_configuration.h"
#include "log/log.h"
#include "messaging/messaging_client_properties.h"

namespace cv::app {

/// Where the Kafka settings are read: the environment's CORVANTH_KAFKA_CONF, else the fixed path.
std::string kafka_config_path();

/// Logs the build identifier and the client library's version, with a warning when it is another
/// than the one this service was made for.
void log_kafka_versions();

template <typename Configuration>
class KafkaService : public Service<Configuration, std::integral_constant<bool, false>> {
 public:
  explicit KafkaService(std::string name)
      : Service<Configuration, std::integral_constant<bool, false>>(std::move(name)),
        m_kafka_group(this->m_service_name),
        m_kafka_topic(this->m_service_name) {}

  bool do_start() override {
    if (!Service<Configuration, std::integral_constant<bool, false>>::do_start()) return false;
    log_kafka_versions();
    rc_ptr<conf::KafkaConfiguration> config(new conf::KafkaConfiguration);
    if (!config->parse_file(kafka_config_path())) return false;
    auto properties = messaging::read_client_properties(config->kafka_properties_file);
    if (!properties) return false;
    m_kafka_properties = std::move(*properties);
    m_kafka_config = std::move(config);
    on_set_kafka_params(m_kafka_group, m_kafka_topic);
    CV_LOG(SystemMessage) << "SERVICE: kafka topic is set to [" << m_kafka_topic << "]";
    CV_LOG(SystemMessage) << "SERVICE: kafka group is set to [" << m_kafka_group << "]";
    return true;
  }

  /// Both configurations are loaded: the derived service names its consumer group and its topic.
  virtual void on_set_kafka_params(std::string& group, std::string& topic) = 0;

 protected:
  rc_ptr<conf::KafkaConfiguration> m_kafka_config;  // empty until loaded
  messaging::ClientProperties m_kafka_properties;
  std::string m_kafka_group;
  std::string m_kafka_topic;
};

}  // namespace cv::app
