#include "medianode/configuration.h"

#include <arpa/inet.h>
#include <list>
#include <vector>

#include "utils/utils_str.h"

namespace cv::mn {

namespace str = utils::str;

static constexpr unsigned int max_drift_frames = 3;

Configuration::Configuration() {
  report_transfer_host.host = "127.0.0.1";
  report_transfer_host.addr.sin_family = AF_INET;
  report_transfer_host.addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
}

/// Writes the field only when the whole text is a number.
template <typename T>
static int set_number(T& field, const std::string& value) {
  T number{};
  if (!str::try_parse_value<T, 10>(value.c_str(), number)) return conf::bad_format;
  field = number;
  return conf::applied;
}

int Configuration::set_value(const std::string& name, const std::string& value,
                             std::stringstream& error) {
  if (name == "report_logging_enabled") return conf::set_bool(report_logging_enabled, value);
  if (name == "report_transfer_enabled") return set_transfer_enabled(value);
  if (name == "report_transfer_disabled") return set_transfer_disabled(value, error);
  if (name == "report_transfer_host") return set_transfer_host(value);
  if (name == "report_on_call_termination") {
    return conf::set_bool(report_on_call_termination, value);
  }
  if (name == "audio_detection_drift") return set_drift(value, error);
  if (name == "segment_detection_default_signal_threshold") {
    return set_number(segment_detection_default_signal_threshold, value);
  }
  if (name == "segment_detection_default_deviation_threshold") {
    return set_number(segment_detection_default_deviation_threshold, value);
  }
  if (name == "segment_detection_default_power_threshold") {
    return set_number(segment_detection_default_power_threshold, value);
  }
  if (name == "segment_detection_default_activity_hits") {
    return set_number(segment_detection_default_activity_hits, value);
  }
  if (name == "segment_detection_default_silence_hits") {
    return set_number(segment_detection_default_silence_hits, value);
  }
  return ConfigVersionExtension::set_value(name, value, error);
}

int Configuration::set_transfer_enabled(const std::string& value) {
  if (value != "true" && value != "false" && value != "service" && value != "session") {
    return conf::bad_format;
  }
  report_to_service = value == "true" || value == "service";
  report_to_session = value == "true" || value == "session";
  return conf::applied;
}

int Configuration::set_transfer_disabled(const std::string& value, std::stringstream& error) {
  std::vector<std::string> items;
  // By a text, not a character: an item missing behind the last bar is one that is not known, too.
  str::split(value, "|", items, true);
  for (const std::string& item : items) {
    if (item == "sample_detection") {
      sample_detection_transfer = false;
    } else if (item == "audio_activity") {
      audio_activity_transfer = false;
    } else {
      error << "unknown value: " << item;
      return conf::refused;
    }
  }
  return conf::applied;
}

int Configuration::set_transfer_host(const std::string& value) {
  std::list<net::HostAddr> hosts;
  net::parse_addrs(value, hosts);
  if (hosts.empty()) return conf::bad_format;
  report_transfer_host = hosts.front();
  // Naming a host switches sending to it on; a report_transfer_enabled behind it decides anew.
  report_to_service = true;
  return conf::applied;
}

int Configuration::set_drift(const std::string& value, std::stringstream& error) {
  unsigned int frames = 0;
  if (!str::try_parse_value<unsigned int, 10>(value.c_str(), frames)) return conf::bad_format;
  if (frames > max_drift_frames) {
    error << "[audio_detection_drift] must not exceed [" << max_drift_frames << "]";
    return conf::refused;
  }
  audio_detection_drift = static_cast<uint8_t>(frames);
  return conf::applied;
}

}  // namespace cv::mn
