#include "tools/configd/event_texts.h"

#include "messaging/messaging_compression.h"
#include "tools/fingerprint.h"
#include "utils/utils_json.h"

namespace cv::tools {

namespace {

/// RapidJSON's writer with what the events have in common.
class EventWriter : public rapidjson::Writer<rapidjson::StringBuffer> {
 public:
  EventWriter() : Writer(m_buffer) {}

  std::string text() const { return {m_buffer.GetString(), m_buffer.GetSize()}; }
  void text_member(const char* name, std::string_view value) {
    Key(name);
    String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  }
  void json_member(const char* name, std::string_view json) {
    Key(name);
    RawValue(json.data(), json.size(), rapidjson::kNullType);
  }
  void unsigned_member(const char* name, uint64_t value) {
    Key(name);
    Uint64(value);
  }
  void number_member(const char* name, double value) {
    Key(name);
    Double(value);
  }

 private:
  rapidjson::StringBuffer m_buffer;
};

}  // namespace

std::string sample_data_json(const std::vector<SampleEntry>& entries) {
  EventWriter writer;
  writer.StartArray();
  for (const SampleEntry& entry : entries) {
    writer.StartObject();
    writer.unsigned_member("rule_id", entry.rule_id);
    writer.unsigned_member("sample_id", entry.sample_id);
    writer.text_member("sample_name", entry.sample_name);
    writer.number_member("threshold", entry.threshold);
    writer.json_member("event_object", entry.event_object);
    writer.EndObject();
  }
  writer.EndArray();
  return writer.text();
}

std::string dead_air_data_json(const std::vector<DeadAirEntry>& entries) {
  EventWriter writer;
  writer.StartArray();
  for (const auto& [rule_id, options] : entries) {
    writer.StartObject();
    writer.unsigned_member("rule_id", rule_id);
    if (options.dev_threshold) writer.number_member("dev_threshold", *options.dev_threshold);
    if (options.pow_threshold) writer.number_member("pow_threshold", *options.pow_threshold);
    if (options.activity_hits) writer.unsigned_member("activity_hits", *options.activity_hits);
    if (options.silence_hits) writer.unsigned_member("silence_hits", *options.silence_hits);
    writer.EndObject();
  }
  writer.EndArray();
  return writer.text();
}

std::string manager_started_event() {
  EventWriter writer;
  writer.StartObject();
  writer.text_member("type", event::manager_started);
  writer.EndObject();
  return writer.text();
}

std::string versions_event(uint64_t sample_version, uint64_t dead_air_version) {
  EventWriter writer;
  writer.StartObject();
  writer.text_member("type", event::versions);
  writer.Key("data");
  writer.StartObject();
  writer.unsigned_member(event::dead_air_configuration, dead_air_version);
  writer.unsigned_member(event::sample_configuration, sample_version);
  writer.EndObject();
  writer.EndObject();
  return writer.text();
}

std::string configuration_event(const char* name, uint64_t version, std::string_view data_json) {
  EventWriter writer;
  writer.StartObject();
  writer.text_member("type", name);
  writer.unsigned_member("version", version);
  writer.json_member("data", data_json);
  writer.EndObject();
  return writer.text();
}

std::string sample_event(uint32_t sample_id, const std::vector<unsigned char>& packet) {
  EventWriter writer;
  writer.StartObject();
  writer.text_member("type", event::sample_list);
  writer.Key("data");
  writer.StartObject();
  writer.unsigned_member("id", sample_id);
  writer.text_member("hash", to_hex(packet));
  writer.EndObject();
  writer.EndObject();
  return writer.text();
}

std::vector<unsigned char> event_body(std::string_view json) {
  std::vector<unsigned char> plain;
  plain.reserve(json.size() + 1);
  plain.push_back(static_cast<unsigned char>(messaging::BodyKind::json));
  plain.insert(plain.end(), json.begin(), json.end());
  return messaging::compress_bounded(plain);
}

}  // namespace cv::tools
