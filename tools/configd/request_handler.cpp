#include "tools/configd/request_handler.h"

#include <vector>

#include "log/log.h"
#include "tools/configd/event_texts.h"
#include "tools/json_text.h"

namespace cv::tools {

namespace {

namespace request = messaging::request;
using rapidjson::Value;

// As much of a refused request as a log line should carry.
constexpr std::size_t max_logged_bytes = 200;

class Request {
 public:
  Request(std::string_view json, const Snapshot& snapshot, const Publish& publish)
      : m_json(json), m_snapshot(snapshot), m_publish(publish) {}

  void answer() {
    std::string error;
    if (!parse_json(m_json, JsonDialect::strict, m_document, error)) return refuse(error);
    const std::string type = text_member("type");
    m_topic = text_member("config_topic");
    if (m_topic.empty()) return refuse("\"config_topic\" is missing or no text");
    if (type == request::get_versions) return answer_versions();
    if (type == request::configuration) return answer_configuration(text_member("configuration"));
    refuse("its \"type\" is unknown");
  }

 private:
  void refuse(const std::string& reason) const {
    CV_LOG(ErrorMessage) << "CONFIGD: request refused, " << reason << ": "
                         << m_json.substr(0, max_logged_bytes);
  }

  std::string text_member(const char* name) const {
    const Value* value = find_member(m_document, name);
    return value && value->IsString() ? std::string(text_of(*value)) : std::string();
  }

  bool publish(std::string json) const { return m_publish(Answer{m_topic, std::move(json)}); }

  void answer_versions() const {
    publish(versions_event(m_snapshot.sample_version, m_snapshot.dead_air_version));
  }

  void answer_configuration(const std::string& name) const {
    if (name == event::sample_configuration) {
      publish(configuration_event(event::sample_configuration, m_snapshot.sample_version,
                                  m_snapshot.sample_data_json));
    } else if (name == event::dead_air_configuration) {
      publish(configuration_event(event::dead_air_configuration, m_snapshot.dead_air_version,
                                  m_snapshot.dead_air_data_json));
    } else if (name == event::sample_list) {
      answer_sample_list();
    } else {
      refuse("its \"configuration\" is unknown");
    }
  }

  void answer_sample_list() const {
    std::vector<uint32_t> ids;
    const Value* wanted = find_member(m_document, "ids");
    if (!wanted) {
      for (const auto& [id, packet] : m_snapshot.packets) ids.push_back(id);
    } else if (!read_ids(*wanted, ids)) {
      return refuse("its \"ids\" is no array of 32-bit numbers");
    }
    CV_LOG(SystemMessage) << "CONFIGD: sending " << ids.size() << " sample(s) to [" << m_topic
                          << "]";
    for (const uint32_t id : ids) {
      const auto found = m_snapshot.packets.find(id);
      if (found == m_snapshot.packets.end()) {
        // A node that asks by the previous configuration; the next one is on its way to it.
        CV_LOG(WarningMessage) << "CONFIGD: [" << m_topic << "] asked for sample (" << id
                               << "), which is in no rule";
      } else if (!publish(sample_event(id, found->second))) {
        return;
      }
    }
  }

  static bool read_ids(const Value& wanted, std::vector<uint32_t>& ids) {
    if (!wanted.IsArray()) return false;
    for (const Value& id : wanted.GetArray()) {
      if (!id.IsUint()) return false;
      ids.push_back(id.GetUint());
    }
    return true;
  }

  std::string_view m_json;
  const Snapshot& m_snapshot;
  const Publish& m_publish;
  rapidjson::Document m_document;
  std::string m_topic;
};

}  // namespace

void answer_request(std::string_view json, const Snapshot& snapshot, const Publish& publish) {
  Request(json, snapshot, publish).answer();
}

}  // namespace cv::tools
