// The node's control side without Kafka: events go in, and what a new call would get is read.
#pragma once

#include <iomanip>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio_sample_packet.h"
#include "medianode/control_events.h"
#include "support/fake_clock.h"
#include "utils/utils_json.h"

namespace cv::test {

/// Identifiers of samples by rule.
using Rules = std::map<uint64_t, std::vector<uint32_t>>;

/// `more`: further members of the event, each with "," before it.
inline std::string sample_configuration(uint64_t version, const Rules& rules,
                                        const std::string& more = "") {
  std::ostringstream json;
  json << R"({"type":"corvanth_sample_configuration","version":)" << version << R"(,"data":[)";
  const char* separator = "";
  for (const auto& [rule, samples] : rules) {
    for (const uint32_t id : samples) {
      json << std::exchange(separator, ",") << R"({"rule_id":)" << rule << R"(,"sample_id":)" << id
           << R"(,"threshold":2,"event_object":{"a":["a text of some length"]}})";
    }
  }
  json << "]" << more << "}";
  return json.str();
}

inline std::string sample_event(uint32_t id, const std::vector<audio::HashPoint>& points,
                                unsigned char flag = 0) {
  auto packet = audio::write_sample_packet(points);
  packet[3] = flag;
  std::ostringstream json;
  json << R"({"type":"corvanth_sample_list","data":{"id":)" << id << R"(,"hash":")" << std::hex
       << std::setfill('0');
  for (const int byte : packet) json << std::setw(2) << byte;
  json << "\"}}";
  return json.str();
}

struct ControlSide {
  ControlSide() {
    dead_air.on_dead_air_config(
        new mn::DeadAirConfig(0, mn::default_segment_detection(*configuration)));
    databases.set_on_swap([this](bool built) { swaps.push_back(built); });
  }

  void receive(const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.c_str());
    const std::string name = document["type"].GetString();
    handlers.at(name)(name, &document);
  }

  rc_ptr<audio::HashDatabase> database(uint64_t rule) {
    uint64_t ignored = 0;
    return databases.get_hash_database(rule, ignored);
  }

  /// "VERSION: A|B", the samples below 10 that the databases of rule 1 and 2 know, "-" without a
  /// database; "none" before anything was published.
  std::string samples_in_force() {
    constexpr uint64_t untouched = 77;
    uint64_t version = untouched;
    std::string found;
    for (const uint64_t rule : {1, 2}) {
      const auto rules_own = databases.get_hash_database(rule, version);
      if (!found.empty()) found += "|";
      for (uint32_t id = 0; rules_own && id < 10; ++id) {
        if (rules_own->sample(id).payload) found += std::to_string(id);
      }
      if (!rules_own) found += "-";
    }
    return version == untouched ? "none" : std::to_string(version) + ": " + found;
  }

  rc_ptr<mn::Configuration> configuration{new mn::Configuration};
  FakeClock clock;
  mn::DatabaseDispatcher databases{clock};
  mn::DeadAirDispatcher dead_air;
  std::vector<bool> swaps;
  std::vector<std::string> sent;  // "TOPIC JSON"
  mn::ControlEvents events{configuration,
                           databases,
                           dead_air,
                           {"req", "node"},
                           [this](const std::string& topic, const std::string& json) {
                             sent.push_back(topic + " " + json);
                           }};
  messaging::EventDispatcher::Handlers handlers = events.handlers();
};

}  // namespace cv::test
