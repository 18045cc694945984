// The events that a configuration manager sends, as texts and as message bodies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/messaging_control_protocol.h"
#include "tools/configd/rules_file.h"

namespace cv::tools {

namespace event = messaging::event;

/// One line of the sample configuration: a rule looks for a sample.
struct SampleEntry {
  uint64_t rule_id = 0;
  uint32_t sample_id = 0;
  std::string sample_name;
  double threshold = 0;
  std::string event_object;  // compact JSON
  std::string file{};        // that it was made of; nodes are not told
};

struct DeadAirEntry {
  uint64_t rule_id = 0;
  DeadAirOptions options;
};

/// The "data" arrays: what a version stands for.
std::string sample_data_json(const std::vector<SampleEntry>& entries);
std::string dead_air_data_json(const std::vector<DeadAirEntry>& entries);

std::string manager_started_event();
std::string versions_event(uint64_t sample_version, uint64_t dead_air_version);
/// `name` is event::sample_configuration or event::dead_air_configuration.
std::string configuration_event(const char* name, uint64_t version, std::string_view data_json);
std::string sample_event(uint32_t sample_id, const std::vector<unsigned char>& packet);

/// Kafka's default limit is 1,000,000 bytes for a message with its header.
inline constexpr std::size_t max_body_bytes = 999000;

/// The message body of a JSON event: envelope and compression, and never one that a receiver has to
/// drop for inflating too much. It may still exceed max_body_bytes.
std::vector<unsigned char> event_body(std::string_view json);

}  // namespace cv::tools
