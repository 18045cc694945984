#include "messaging/messaging_event_dispatcher.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "log/log.h"
#include "messaging/messaging_control_protocol.h"
#include "utils/utils_json.h"

namespace cv::messaging {

namespace {

/// The deepest nesting of arrays and objects in a JSON text. Exact as far as the text is valid JSON,
/// which is as far as a parser gets.
size_t nesting(std::string_view json) {
  size_t depth = 0;
  size_t deepest = 0;
  bool in_string = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (c == '"') {
      in_string = !in_string;
    } else if (in_string) {
      if (c == '\\') ++i;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

}  // namespace

EventDispatcher::EventDispatcher(MessageBrokerSettings settings, Handlers handlers)
    : m_handlers(std::move(handlers)) {
  if (settings.on_message) {
    CV_LOG(WarningMessage) << "EVENT_DISPATCHER: Resetting message received event";
  }
  settings.on_message = [this](const unsigned char* data, size_t size) { on_message(data, size); };
  m_broker = std::make_unique<MessageBroker>(std::move(settings));
  m_constructed.count_down();
}

void EventDispatcher::dispatch(const std::string& topic, const std::string& json) {
  std::vector<unsigned char> body;
  body.reserve(json.size() + 1);
  body.push_back(static_cast<unsigned char>(BodyKind::json));
  body.insert(body.end(), json.begin(), json.end());
  CV_LOG(SystemMessage) << "EVENT_DISPATCHER: dispatch to [" << topic << "]: " << json;
  m_constructed.wait();
  m_broker->send(topic, body.data(), body.size());
}

void EventDispatcher::on_message(const unsigned char* data, size_t size) {
  if (size == 0) return;
  switch (static_cast<BodyKind>(data[0])) {
    case BodyKind::json:
      handle_json_event(data + 1, size - 1);
      break;
    case BodyKind::binary:
      CV_LOG(WarningMessage) << "EVENT_DISPATCHER: binary event is not supported, ignoring; size ("
                             << size - 1 << ") bytes";
      break;
    default:
      CV_LOG(ErrorMessage) << "EVENT_DISPATCHER: unknown event (" << static_cast<unsigned>(data[0])
                           << "), ignoring; size (" << size - 1 << ") bytes";
  }
}

void EventDispatcher::handle_json_event(const unsigned char* data, size_t size) {
  const std::string_view json(reinterpret_cast<const char*>(data), size);
  if (log::Logger::m_instance.level >= log::Level::INFO) {
    CV_LOG(InfoMessage) << "EVENT_DISPATCHER: JSON event received: " << json;
  }
  if (nesting(json) > max_nesting) {
    CV_LOG(ErrorMessage) << "EVENT_DISPATCHER: JSON is nested deeper than (" << max_nesting
                         << "), ignoring";
    return;
  }
  rapidjson::Document document;
  document.Parse(json.data(), json.size());
  if (document.HasParseError()) {
    CV_LOG(ErrorMessage) << "EVENT_DISPATCHER: JSON parse error at [" << document.GetErrorOffset()
                         << "]: \"" << rapidjson::GetParseError_En(document.GetParseError()) << '"';
    return;
  }
  const rapidjson::Value& event = document;
  if (!event.IsObject()) {
    CV_LOG(ErrorMessage) << "EVENT_DISPATCHER: JSON root is not an object";
    return;
  }
  const auto type = event.FindMember(JsonEvent::field_type);
  if (type == event.MemberEnd()) {
    CV_LOG(ErrorMessage) << "EVENT_DISPATCHER: JSON element \"" << JsonEvent::field_type
                         << "\" is not found";
    return;
  }
  if (!type->value.IsString()) {
    CV_LOG(ErrorMessage) << "EVENT_DISPATCHER: JSON element \"" << JsonEvent::field_type
                         << "\" is not a string";
    return;
  }
  const std::string name(type->value.GetString(), type->value.GetStringLength());
  const auto handler = m_handlers.find(name);
  if (handler == m_handlers.end()) {
    CV_LOG(ErrorMessage) << "EVENT_DISPATCHER: unknown JSON event [" << name << ']';
    return;
  }
  handler->second(name, &document);
}

}  // namespace cv::messaging
