// Groups of settings, each a class template over the configuration it extends, so that a program
// stacks the ones it needs. Fields bear the names of their keys.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <sstream>
#include <string>
#include <unordered_map>

#include "conf/conf_configuration.h"
#include "log/log.h"
#include "net/net_address_list.h"
#include "net/net_hosts.h"
#include "utils/utils_str.h"

namespace cv::conf {

/// "true" or "false", exactly so written; a set_result.
inline int set_bool(bool& field, const std::string& value) {
  if (value != "true" && value != "false") return bad_format;
  field = value == "true";
  return applied;
}

template <typename Base>
class LogExtenstion : public Base {
 public:
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    if (name == "log_level") return log::try_parse_level(value, log_level) ? applied : bad_format;
    return Base::set_value(name, value, error);
  }

  log::Level log_level = log::Level::INFO;
};

/// What the node takes from the network, and how much of it.
template <typename Base>
class LimitsExtension : public Base {
 public:
  /// The kernel keeps twice this in a signed 32-bit number.
  static constexpr uint32_t max_receive_buffer_bytes = INT32_MAX / 2;

  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    if (name == "media_receive_buffer_bytes") return set_receive_buffer(value, error);
    if (name == "media_sources") return set_addresses(media_sources, value, error);
    if (name == "report_destinations") return set_addresses(report_destinations, value, error);
    if (name == "session_limit") return set_session_limit(value);
    return Base::set_value(name, value, error);
  }

  uint32_t media_receive_buffer_bytes = 16 << 20;  // 0: the system's default
  net::AddressList media_sources;                  // whose datagrams are taken; empty: everybody's
  net::AddressList report_destinations;            // that a call may name; empty: any
  uint32_t session_limit = 0;                      // live and zombie sessions together; 0: no limit

 private:
  int set_receive_buffer(const std::string& value, std::stringstream& error) {
    uint64_t bytes = 0;
    if (!utils::str::try_parse_value<uint64_t, 10>(value.c_str(), bytes)) return bad_format;
    if (bytes > max_receive_buffer_bytes) {
      error << "[media_receive_buffer_bytes] must not exceed [" << max_receive_buffer_bytes << "]";
      return refused;
    }
    media_receive_buffer_bytes = static_cast<uint32_t>(bytes);
    return applied;
  }

  int set_session_limit(const std::string& value) {
    uint32_t sessions = 0;
    if (!utils::str::try_parse_value<uint32_t, 10>(value.c_str(), sessions)) return bad_format;
    session_limit = sessions;
    return applied;
  }

  static int set_addresses(net::AddressList& field, const std::string& value,
                           std::stringstream& error) {
    std::string reason;
    if (field.parse(value, reason)) return applied;
    error << reason;
    return refused;
  }
};

template <typename Base>
class PortExtension : public Base {
 public:
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    if (name == "port") {
      return utils::str::try_parse_value<unsigned short, 10>(value.c_str(), port) ? applied
                                                                                  : bad_format;
    }
    return Base::set_value(name, value, error);
  }

  uint16_t port = 0;
};

template <typename Base>
class StatExtension : public Base {
 public:
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    if (name == "statistic_logging_enabled") return set_bool(statistic_logging_enabled, value);
    if (name == "statistic_transfer_enabled") return set_bool(statistic_transfer_enabled, value);
    if (name == "statistic_transfer_host") return set_transfer_host(value);
    return Base::set_value(name, value, error);
  }

  bool statistic_logging_enabled = true;
  bool statistic_transfer_enabled = false;
  net::Host statistic_transfer_host;

 private:
  /// Naming a host switches the transfer on.
  int set_transfer_host(const std::string& value) {
    std::list<net::Host> hosts;
    net::parse_hosts(value, hosts);
    if (hosts.empty()) return bad_format;
    statistic_transfer_host = hosts.front();
    statistic_transfer_enabled = true;
    return applied;
  }
};

/// The version of each configuration last received, by the configuration's name. The one part of a
/// configuration object that changes at run time: any thread, under the lock.
template <typename Base>
class ConfigVersionExtension : public Base {
 public:
  std::mutex m_config_versions_lock;
  std::unordered_map<std::string, uint64_t> m_config_versions;
};

/// Where further properties of the Kafka clients stand. Not they themselves: they hold secrets, and every
/// setting applied is logged.
template <typename Base>
class KafkaPropertiesExtension : public Base {
 public:
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    if (name != "kafka_properties_file") return Base::set_value(name, value, error);
    kafka_properties_file = value;
    return applied;
  }

  std::string kafka_properties_file;  // empty: none
};

template <typename Base>
class KafkaExtenstion : public Base {
 public:
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override {
    std::string* field = name == "kafka_broker"            ? &kafka_broker
                         : name == "kafka_topic_broadcast" ? &kafka_topic_broadcast
                         : name == "kafka_topic_request"   ? &kafka_topic_request
                                                           : nullptr;
    if (field == nullptr) return Base::set_value(name, value, error);
    *field = value;
    return applied;
  }

  std::string kafka_broker;
  std::string kafka_topic_request;
  std::string kafka_topic_broadcast;
};

}  // namespace cv::conf
