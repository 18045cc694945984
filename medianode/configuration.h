// The media node's settings. Filled on the main thread before anything else starts, then read
// without a lock from every thread; one instance, shared through rc_ptr.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>

#include "conf/conf_extensions.h"
#include "net/net_hosts.h"

namespace cv::mn {

class Configuration
    : public conf::ConfigVersionExtension<conf::StatExtension<
          conf::PortExtension<conf::LogExtenstion<conf::LimitsExtension<conf::Configuration>>>>> {
 public:
  Configuration();

  /// A refused value leaves its field as it was.
  int set_value(const std::string& name, const std::string& value,
                std::stringstream& error) override;

  // What applies where a dead-air configuration gives no value of its own.
  double segment_detection_default_signal_threshold = 1.0;
  double segment_detection_default_deviation_threshold = 256.0;
  double segment_detection_default_power_threshold = 0.75;
  uint64_t segment_detection_default_activity_hits = 5;
  uint64_t segment_detection_default_silence_hits = 2;

  bool report_logging_enabled = true;
  net::HostAddr report_transfer_host;  // 127.0.0.1 port 0: port 0 sends nothing
  bool report_to_service = false;      // to report_transfer_host
  bool report_to_session = true;       // to the address in the call's START packet
  bool report_on_call_termination = false;
  bool sample_detection_transfer = true;
  bool audio_activity_transfer = true;
  uint8_t audio_detection_drift = 1;  // frames, 0 to 3

 private:
  int set_transfer_enabled(const std::string& value);
  int set_transfer_disabled(const std::string& value, std::stringstream& error);
  int set_transfer_host(const std::string& value);
  int set_drift(const std::string& value, std::stringstream& error);
};

}  // namespace cv::mn
