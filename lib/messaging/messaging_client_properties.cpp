#include "messaging/messaging_client_properties.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <list>
#include <memory>
#include <sstream>
#include <string_view>

#include "log/log.h"
#include "utils/utils_str.h"

namespace cv::messaging {

namespace {

namespace str = utils::str;

constexpr const char* hidden = "***";

// How soon a subscribed topic is assigned that did not exist at the start. The library's own five
// minutes would keep a new node waiting.
constexpr const char* topic_refresh_interval_ms = "5000";
// How soon the group lets go of a consumer that died, and its successor, a restarted node, gets the
// topics. The least that brokers accept by default; the library's own is 45 s.
constexpr const char* session_timeout_ms = "6000";
// A heartbeat without an answer for session.timeout.ms breaks the connection, and with it a commit under
// way that the deletion of the consumer waits for. At the default of three seconds a stop could take as
// much longer.
constexpr const char* heartbeat_interval_ms = "1000";
// A commit that no heartbeat follows any more waits for its own answer, by default a minute. A fetch may
// take as long, too: two topics of 1 MB each need a link of 2 Mbit/s.
constexpr const char* socket_timeout_ms = "8000";

bool is_word_character(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

/// Replaces `word` where it stands by itself. A value of a letter or two must not make the rest of a
/// message unreadable.
void hide_word(std::string& text, const std::string& word) {
  if (word.empty()) return;
  for (size_t at = 0; (at = text.find(word, at)) != text.npos;) {
    const size_t end = at + word.size();
    const bool inside =
        (at > 0 && is_word_character(text[at - 1]) && is_word_character(word[0])) ||
        (end < text.size() && is_word_character(text[end]) && is_word_character(word.back()));
    if (inside) {
      ++at;
    } else {
      text.replace(at, word.size(), hidden);
      at += std::strlen(hidden);
    }
  }
}

/// The library's reason for a refusal without the value, which may be a password in the wrong place.
/// It quotes the whole value or, of a list, one member.
std::string without_value(std::string reason, const std::string& value) {
  hide_word(reason, value);
  std::vector<std::string> members;
  str::split(value, ',', members, false);
  for (const std::string& member : members) hide_word(reason, str::trim(member));
  return reason;
}

bool is_secret(const std::string& name) {
  for (const char* part : {"password", "secret", ".pem", "oauthbearer.config"}) {
    if (name.find(part) != name.npos) return true;
  }
  return false;
}

/// No other character is in a name of the library. What has one is likely a password that lost its place.
bool is_name(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return is_word_character(c) || c == '.' || c == '-'; });
}

/// False when the line has another form than "name = value".
bool parse_line(const std::string& line, ClientProperties& properties) {
  const std::string text = str::trim(line);
  if (text.empty() || text.front() == '#') return true;
  const size_t equals = text.find('=');
  if (equals == text.npos || equals == 0) return false;
  const std::string name = str::trim_right(text.substr(0, equals));
  if (!is_name(name)) return false;
  properties.push_back({name, str::trim_left(text.substr(equals + 1))});
  return true;
}

/// Whether the library has a property whose name begins as this one, up to the first dot.
bool is_of_known_family(const std::string& name) {
  const size_t dot = name.find('.');
  if (dot == name.npos) return false;
  const std::unique_ptr<RdKafka::Conf> conf(RdKafka::Conf::create(RdKafka::Conf::CONF_GLOBAL));
  const std::unique_ptr<const std::list<std::string>> names_and_values(conf->dump());
  return std::any_of(
      names_and_values->begin(), names_and_values->end(),
      [&](const std::string& known) { return known.starts_with(name.substr(0, dot + 1)); });
}

void log_refused_property(const std::string& name, const std::string& reason) {
  CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to setup \"" << name << "\": " << reason;
}

// `value` is a text or a pointer to the callback interface that the property names.
template <typename Value>
bool set_property(RdKafka::Conf& conf, const char* name, Value value) {
  std::string error;
  if (conf.set(name, value, error) == RdKafka::Conf::CONF_OK) return true;
  log_refused_property(name, error);
  return false;
}

void log_file_error(const std::string& path, const std::string& what) {
  CV_LOG(ErrorMessage) << "MESSAGE_BROKER: Kafka properties file [" << path << "]" << what;
}

}  // namespace

bool set_client_properties(RdKafka::Conf& conf, const ClientProperties& properties) {
  for (const auto& [name, value] : properties) {
    std::string error;
    const RdKafka::Conf::ConfResult result = conf.set(name, value, error);
    if (result == RdKafka::Conf::CONF_OK) continue;
    // What is like no property may be a password that ends in "="; "sasl.pasword" is worth its name.
    const bool any_word = result == RdKafka::Conf::CONF_UNKNOWN && !is_of_known_family(name);
    if (any_word) hide_word(error, name);
    log_refused_property(any_word ? hidden : name, without_value(error, value));
    return false;
  }
  return true;
}

std::optional<ClientProperties> read_client_properties(const std::string& path) {
  ClientProperties properties;
  if (path.empty()) return properties;
  std::ifstream file(path);
  if (!file) {
    log_file_error(path, std::string(" cannot be opened: ") + std::strerror(errno));
    return std::nullopt;
  }
  const std::unique_ptr<RdKafka::Conf> trial(RdKafka::Conf::create(RdKafka::Conf::CONF_GLOBAL));
  std::string line;
  for (unsigned long number = 1; std::getline(file, line); ++number) {
    const size_t count = properties.size();
    if (!parse_line(line, properties)) {
      // Not the line itself: it may be a password that lost its property.
      log_file_error(path, ", line " + std::to_string(number) + ": not of the form property=value");
      return std::nullopt;
    }
    if (properties.size() != count && !set_client_properties(*trial, {properties.back()})) {
      log_file_error(path, ", line " + std::to_string(number) + ": the property is refused");
      return std::nullopt;
    }
  }
  // A directory opens like a file and fails here.
  if (file.bad()) {
    log_file_error(path, " cannot be read");
    return std::nullopt;
  }
  return properties;
}

std::string without_secrets(std::string text, const ClientProperties& properties) {
  for (const auto& [name, value] : properties) {
    if (is_secret(name)) hide_word(text, value);
  }
  return text;
}

std::unique_ptr<RdKafka::Conf> producer_conf(const std::string& brokers,
                                             const ClientProperties& properties,
                                             RdKafka::DeliveryReportCb& delivery_reports) {
  std::unique_ptr<RdKafka::Conf> conf(RdKafka::Conf::create(RdKafka::Conf::CONF_GLOBAL));
  if (!set_property(*conf, "metadata.broker.list", brokers) ||
      !set_property(*conf, "dr_cb", &delivery_reports) ||
      !set_client_properties(*conf, properties)) {
    return nullptr;
  }
  return conf;
}

std::unique_ptr<RdKafka::Conf> consumer_conf(const std::string& brokers,
                                             const std::string& group_id,
                                             const ClientProperties& properties,
                                             RdKafka::RebalanceCb& rebalances,
                                             RdKafka::EventCb& events) {
  std::unique_ptr<RdKafka::Conf> conf(RdKafka::Conf::create(RdKafka::Conf::CONF_GLOBAL));
  if (conf == nullptr) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to create consumer configuration";
    return nullptr;
  }
  if (!set_property(*conf, "rebalance_cb", &rebalances) ||
      !set_property(*conf, "enable.partition.eof", "true") ||
      !set_property(*conf, "allow.auto.create.topics", "true") ||
      !set_property(*conf, "group.id", group_id) ||
      !set_property(*conf, "metadata.broker.list", brokers) ||
      !set_property(*conf, "event_cb", &events) ||
      !set_property(*conf, "topic.metadata.refresh.interval.ms", topic_refresh_interval_ms) ||
      !set_property(*conf, "session.timeout.ms", session_timeout_ms) ||
      !set_property(*conf, "heartbeat.interval.ms", heartbeat_interval_ms) ||
      !set_property(*conf, "socket.timeout.ms", socket_timeout_ms)) {
    return nullptr;
  }
  const std::unique_ptr<RdKafka::Conf> topic_conf(RdKafka::Conf::create(RdKafka::Conf::CONF_TOPIC));
  if (topic_conf == nullptr) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to create topic configuration";
    return nullptr;
  }
  if (!set_property(*topic_conf, "auto.offset.reset", "latest") ||
      !set_property(*conf, "default_topic_conf",
                    static_cast<const RdKafka::Conf*>(topic_conf.get())) ||
      !set_client_properties(*conf, properties)) {
    return nullptr;
  }
  return conf;
}

}  // namespace cv::messaging
