#include "medianode/control_events.h"

#include <mutex>
#include <sstream>
#include <utility>

#include "audio/audio_sample_packet.h"
#include "log/log.h"
#include "medianode/event_members.h"
#include "utils/utils_bytes.h"
#include "utils/utils_json.h"

namespace cv::mn {

namespace {

namespace event = messaging::event;
namespace request = messaging::request;
using audio::SamplePacket;
using audio::SegmentDetectionOptions;
using rapidjson::Value;

void log_received(const std::string& name) {
  CV_LOG(SystemMessage) << "SERVICE: event [" << name << "] received";
}

const Value& root_of(void* document) { return *static_cast<const rapidjson::Document*>(document); }

/// What both kinds of configuration begin with: their version and an array of entries. Null: the
/// event is unusable.
const Value* read_configuration(const Value& event, uint64_t& version) {
  const Value* version_member = require_member(event, "version");
  if (version_member == nullptr) return nullptr;
  const Value* data = require_member(event, "data");
  if (data == nullptr) return nullptr;
  if (!data->IsArray()) {
    refuse_member("data");
    return nullptr;
  }
  return read_member(*version_member, "version", version) ? data : nullptr;
}

bool is_entry(const Value& entry) {
  if (entry.IsObject()) return true;
  CV_LOG(ErrorMessage) << "SERVICE: entry of field \"data\" has invalid format";
  return false;
}

/// JSON text without blanks. A number beyond a double's range, which the parser lets through in some
/// spellings, cannot be written: the value is refused.
bool read_member_as_text(const Value& value, const char* name, std::string& out) {
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  if (!value.Accept(writer)) return refuse_member(name);
  out.assign(text.GetString(), text.GetSize());
  return true;
}

bool read_sample_name(const Value& entry, uint32_t sample_id, std::string& name) {
  if (const Value* given = find_member(entry, "sample_name")) {
    return read_member(*given, "sample_name", name);
  }
  name = "id_" + std::to_string(sample_id);
  CV_LOG(WarningMessage) << "SERVICE: Sample [" << sample_id
                         << "]: sample name is not specified, using pattern 'id_<sample_id>'";
  return true;
}

/// One sample of one rule; empty when the entry is unusable.
rc_ptr<audio::SampleMetadata> read_sample(const Value& entry, uint64_t& rule_id) {
  if (!is_entry(entry)) return nullptr;
  const Value* rule = require_member(entry, "rule_id");
  if (rule == nullptr) return nullptr;
  const Value* id = require_member(entry, "sample_id");
  if (id == nullptr) return nullptr;
  const Value* threshold = require_member(entry, "threshold");
  if (threshold == nullptr) return nullptr;
  const Value* event_object = find_member(entry, "event_object");
  if (event_object == nullptr) {
    CV_LOG(WarningMessage) << "SERVICE: field \"event_object\" is not found, it's a mandatory";
    return nullptr;
  }
  rc_ptr<audio::SampleMetadata> sample(new audio::SampleMetadata);
  if (!read_member(*rule, "rule_id", rule_id) || !read_sample_id(*id, "sample_id", sample->id) ||
      !read_member(*threshold, "threshold", sample->threshold) ||
      !read_member_as_text(*event_object, "event_object", sample->event_object) ||
      !read_sample_name(entry, sample->id, sample->name)) {
    return nullptr;
  }
  return sample;
}

/// Reads an option that may be missing with `read`; `value` is then left alone. False: unusable.
template <typename Read, typename T>
bool read_option(const Value& entry, const char* name, Read read, T& value) {
  if (const Value* given = find_member(entry, name)) return read(*given, name, value);
  CV_LOG(InfoMessage) << "SERVICE: field \"" << name
                      << "\" is not found, using value from the service config";
  return true;
}

/// `options` come in as the defaults. False: the entry is unusable.
bool read_dead_air(const Value& entry, uint64_t& rule_id, SegmentDetectionOptions& options) {
  const auto number = [](const Value& value, const char* name, double& out) {
    return read_member(value, name, out);
  };
  if (!is_entry(entry)) return false;
  const Value* rule = require_member(entry, "rule_id");
  return rule != nullptr && read_member(*rule, "rule_id", rule_id) &&
         read_option(entry, "dev_threshold", number, options.dev_threshold) &&
         read_option(entry, "pow_threshold", number, options.pow_threshold) &&
         read_option(entry, "activity_hits", &read_hits, options.activity_hits) &&
         read_option(entry, "silence_hits", &read_hits, options.silence_hits);
}

/// The packet is a view of `bytes`. False: it is none, which has been logged.
bool parse_sample_packet(const std::vector<uint8_t>& bytes, SamplePacket& packet) {
  const char* fault = nullptr;
  if (bytes.empty()) {
    fault = "";
  } else {
    switch (SamplePacket::parse(bytes.data(), bytes.size(), packet)) {
      case SamplePacket::Status::Ok:
        return true;
      case SamplePacket::Status::TooShort:
        fault = ": too short";
        break;
      case SamplePacket::Status::BadMagic:
        fault = ": not a hash data";
        break;
      case SamplePacket::Status::CountExceedsBytes:
        fault = ": less data than its count says";
        break;
    }
  }
  CV_LOG(ErrorMessage) << "SERVICE: field \"hash\" parsing error" << fault;
  return false;
}

}  // namespace

SegmentDetectionOptions default_segment_detection(const Configuration& configuration) {
  SegmentDetectionOptions options;
  options.sig_threshold = configuration.segment_detection_default_signal_threshold;
  options.dev_threshold = configuration.segment_detection_default_deviation_threshold;
  options.pow_threshold = configuration.segment_detection_default_power_threshold;
  options.activity_hits = configuration.segment_detection_default_activity_hits;
  options.silence_hits = configuration.segment_detection_default_silence_hits;
  return options;
}

ControlEvents::ControlEvents(rc_ptr<Configuration> configuration,
                             DatabaseDispatcher& database_dispatcher,
                             DeadAirDispatcher& dead_air_dispatcher, Topics topics, Send send)
    : m_configuration(std::move(configuration)),
      m_database_dispatcher(database_dispatcher),
      m_dead_air_dispatcher(dead_air_dispatcher),
      m_topics(std::move(topics)),
      m_send(std::move(send)) {}

messaging::EventDispatcher::Handlers ControlEvents::handlers() {
  const auto call = [this](void (ControlEvents::*handler)(const std::string&, void*)) {
    return [this, handler](const std::string& name, void* document) {
      (this->*handler)(name, document);
    };
  };
  return {{event::manager_started, call(&ControlEvents::event_on_config_manager_started)},
          {event::versions, call(&ControlEvents::event_on_config_version)},
          {event::dead_air_configuration, call(&ControlEvents::event_on_deadair_configuration)},
          {event::sample_configuration, call(&ControlEvents::event_on_sample_configuration)},
          {event::sample_list, call(&ControlEvents::event_on_sample_list)}};
}

void ControlEvents::event_request_config_versions() { send_request(request::get_versions, ""); }

void ControlEvents::event_request_config(const std::string& name) {
  send_request(request::configuration, R"("configuration":")" + name + R"(", )");
}

void ControlEvents::event_request_samples(const std::unordered_set<uint32_t>* ids) {
  std::ostringstream members;
  members << R"("configuration":")" << event::sample_list << R"(", )";
  if (ids != nullptr && !ids->empty()) {
    members << R"("ids":)";
    const char* separator = "[";
    for (const uint32_t id : *ids) members << std::exchange(separator, ", ") << id;
    members << "], ";
  }
  send_request(request::configuration, members.str());
}

void ControlEvents::send_request(const std::string& type, const std::string& members) {
  m_send(m_topics.request, R"({"type":")" + type + R"(", )" + members + R"("config_topic":")" +
                               m_topics.node + R"("})");
}

void ControlEvents::event_on_config_manager_started(const std::string& name, void*) {
  log_received(name);
  CV_LOG(SystemMessage) << "SERVICE: requesting config versions";
  event_request_config_versions();
}

void ControlEvents::event_on_config_version(const std::string& name, void* document) {
  log_received(name);
  const Value* data = find_member(root_of(document), "data");
  if (data == nullptr) {
    CV_LOG(ErrorMessage) << "SERVICE: field \"data\" is not found";
    return;
  }
  if (!data->IsObject()) {
    refuse_member("data");
    return;
  }
  bool up_to_date = true;
  for (const char* config : m_configs) {
    const Value* member = find_member(*data, config);
    if (member == nullptr) continue;
    uint64_t received = 0;
    if (!read_member(*member, config, received)) {
      up_to_date = false;  // nobody knows
      continue;
    }
    const uint64_t recorded = recorded_version(config);
    if (received == recorded) continue;
    up_to_date = false;
    CV_LOG(SystemMessage) << "SERVICE: config [" << config << "] version updated from (" << recorded
                          << ") to (" << received << ")";
    event_request_config(config);
  }
  if (up_to_date) {
    CV_LOG(SystemMessage) << "SERVICE: version is up-to-date, nothing to update";
  }
}

void ControlEvents::event_on_deadair_configuration(const std::string& name, void* document) {
  log_received(name);
  uint64_t version = 0;
  const Value* data = read_configuration(root_of(document), version);
  if (data == nullptr) return;
  const SegmentDetectionOptions defaults = default_segment_detection(*m_configuration);
  rc_ptr<DeadAirConfig> config(new DeadAirConfig(version, defaults));
  for (const Value& entry : data->GetArray()) {
    uint64_t rule_id = 0;
    SegmentDetectionOptions options = defaults;
    if (read_dead_air(entry, rule_id, options)) config->m_rules.try_emplace(rule_id, options);
  }
  record_version(event::dead_air_configuration, version);
  m_dead_air_dispatcher.on_dead_air_config(std::move(config));
}

void ControlEvents::event_on_sample_configuration(const std::string& name, void* document) {
  log_received(name);
  uint64_t version = 0;
  const Value* data = read_configuration(root_of(document), version);
  if (data == nullptr) return;
  SampleConfig config(version);
  for (const Value& entry : data->GetArray()) {
    uint64_t rule_id = 0;
    if (const auto sample = read_sample(entry, rule_id)) config.add(rule_id, sample);
  }
  std::unordered_set<uint32_t>* missing = nullptr;
  if (m_database_dispatcher.on_config_received(config, missing) == 0) {
    CV_LOG(SystemMessage) << "SERVICE: No sample configuration update is required";
  } else {
    event_request_samples(missing);
  }
  // Last: what fails before is requested again when the versions are next announced.
  record_version(event::sample_configuration, version);
}

void ControlEvents::event_on_sample_list(const std::string& name, void* document) {
  log_received(name);
  const Value* data = require_member(root_of(document), "data");
  if (data == nullptr) return;
  if (!data->IsObject()) {
    refuse_member("data");
    return;
  }
  const Value* id_member = require_member(*data, "id");
  if (id_member == nullptr) return;
  const Value* hash = require_member(*data, "hash");
  if (hash == nullptr) return;
  uint32_t id = 0;
  if (!read_sample_id(*id_member, "id", id)) return;
  if (!hash->IsString()) {
    refuse_member("hash");
    return;
  }
  const auto bytes = utils::bytes::decode(hash->GetString(), hash->GetStringLength());
  SamplePacket packet;
  if (parse_sample_packet(bytes, packet)) m_database_dispatcher.on_sample_received(id, packet);
}

uint64_t ControlEvents::recorded_version(const std::string& name) {
  const std::lock_guard lock(m_configuration->m_config_versions_lock);
  return m_configuration->m_config_versions[name];
}

void ControlEvents::record_version(const std::string& name, uint64_t version) {
  const std::lock_guard lock(m_configuration->m_config_versions_lock);
  m_configuration->m_config_versions[name] = version;
}

}  // namespace cv::mn
