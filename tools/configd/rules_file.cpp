#include "tools/configd/rules_file.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <set>

#include "tools/json_text.h"
#include "tools/text_file.h"

namespace cv::tools {

namespace {

using rapidjson::Value;

// The score grows with the logarithm of the votes; no recording comes near this.
constexpr double max_threshold = 64.0;

std::string at(const std::string& place, const char* member) {
  return place.empty() ? member : place + "." + member;
}

std::string at(const std::string& place, std::size_t index) {
  return place + "[" + std::to_string(index) + "]";
}

/// Walks the document; the first complaint stays in m_error and everything after it is moot.
class Reader {
 public:
  Rules read(const Value& root);
  const std::string& error() const { return m_error; }

 private:
  /// What a rule gives to those of its samples that do not say it themselves.
  struct Defaults {
    double threshold = default_threshold;
    std::string event_object = "{}";
  };

  void fail(const std::string& place, const std::string& what) {
    if (m_error.empty()) m_error = (place.empty() ? "top level" : place) + ": " + what;
  }
  bool check_object(const Value& value, const std::string& place,
                    std::initializer_list<std::string_view> known);
  const Value* array_member(const Value& object, const std::string& place, const char* name);
  double number(const Value& object, const std::string& place, const char* name, double least,
                double most, double absent);
  uint64_t integer(const Value& value, const std::string& place, uint64_t most);
  Defaults read_defaults(const Value& object, const std::string& place, Defaults from);
  std::string file_name(const Value& value, const std::string& place);
  Rule read_rule(const Value& value, const std::string& place, const Defaults& defaults);
  SampleUse read_sample(const Value& value, const std::string& place, const Defaults& defaults);
  DeadAirOptions read_dead_air(const Value& value, const std::string& place);

  std::string m_error;
};

bool Reader::check_object(const Value& value, const std::string& place,
                          std::initializer_list<std::string_view> known) {
  if (!value.IsObject()) {
    fail(place, "must be an object");
    return false;
  }
  std::set<std::string_view> seen;
  for (const auto& member : value.GetObject()) {
    const std::string_view name = text_of(member.name);
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      std::string text = "unknown member \"" + std::string(name) + "\", known are";
      for (const auto each : known) text += " \"" + std::string(each) + "\"";
      fail(place, text);
    } else if (!seen.insert(name).second) {
      fail(place, "member \"" + std::string(name) + "\" stands twice");
    }
  }
  return m_error.empty();
}

const Value* Reader::array_member(const Value& object, const std::string& place, const char* name) {
  const Value* value = find_member(object, name);
  if (value && value->IsArray()) return value;
  fail(at(place, name), value ? "must be an array" : "is missing");
  return nullptr;
}

double Reader::number(const Value& object, const std::string& place, const char* name, double least,
                      double most, double absent) {
  const Value* value = find_member(object, name);
  if (!value) return absent;
  if (value->IsNumber() && value->GetDouble() >= least && value->GetDouble() <= most) {
    return value->GetDouble();
  }
  fail(at(place, name), "must be a number from " + to_compact_json(Value(least)) + " to " +
                            to_compact_json(Value(most)) + ", not " + to_compact_json(*value));
  return absent;
}

uint64_t Reader::integer(const Value& value, const std::string& place, uint64_t most) {
  if (value.IsUint64() && value.GetUint64() <= most) return value.GetUint64();
  fail(place, "must be a whole number from 0 to " + std::to_string(most) + ", not " +
                  to_compact_json(value));
  return 0;
}

Reader::Defaults Reader::read_defaults(const Value& object, const std::string& place,
                                       Defaults from) {
  // A threshold of 0 would report every sample all the time.
  from.threshold = number(object, place, "threshold", 0.1, max_threshold, from.threshold);
  if (const Value* event = find_member(object, "event_object")) {
    from.event_object = to_compact_json(*event);
  }
  return from;
}

std::string Reader::file_name(const Value& value, const std::string& place) {
  if (!value.IsString() || value.GetStringLength() == 0) {
    fail(place, "must name a file, such as \"greeting.wav\" or \"*\"");
    return {};
  }
  return std::string(text_of(value));
}

SampleUse Reader::read_sample(const Value& value, const std::string& place,
                              const Defaults& defaults) {
  SampleUse use;
  use.threshold = defaults.threshold;
  use.event_object = defaults.event_object;
  if (!value.IsObject()) {
    use.file = file_name(value, place);
    return use;
  }
  if (!check_object(value, place, {"file", "threshold", "name", "event_object"})) return use;
  const Value* file = find_member(value, "file");
  use.file = file ? file_name(*file, at(place, "file")) : std::string();
  if (!file) fail(at(place, "file"), "is missing");
  const Defaults own = read_defaults(value, place, defaults);
  use.threshold = own.threshold;
  use.event_object = own.event_object;
  if (const Value* name = find_member(value, "name")) {
    if (!name->IsString() || !is_plain_name(text_of(*name))) {
      fail(at(place, "name"), "must be a text without quotes, backslashes and control characters");
    } else {
      use.name = text_of(*name);
    }
  }
  return use;
}

DeadAirOptions Reader::read_dead_air(const Value& value, const std::string& place) {
  DeadAirOptions options;
  if (!check_object(value, place,
                    {"dev_threshold", "pow_threshold", "activity_hits", "silence_hits"})) {
    return options;
  }
  // Deviation and power of 16-bit audio end far below these.
  if (find_member(value, "dev_threshold")) {
    options.dev_threshold = number(value, place, "dev_threshold", 0, 1e6, 0);
  }
  if (find_member(value, "pow_threshold")) {
    options.pow_threshold = number(value, place, "pow_threshold", 0, 100, 0);
  }
  if (const Value* hits = find_member(value, "activity_hits")) {
    options.activity_hits =
        static_cast<uint32_t>(integer(*hits, at(place, "activity_hits"), UINT32_MAX));
  }
  if (const Value* hits = find_member(value, "silence_hits")) {
    options.silence_hits =
        static_cast<uint32_t>(integer(*hits, at(place, "silence_hits"), UINT32_MAX));
  }
  return options;
}

Rule Reader::read_rule(const Value& value, const std::string& place, const Defaults& defaults) {
  Rule rule;
  if (!check_object(value, place,
                    {"id", "name", "threshold", "event_object", "samples", "dead_air"})) {
    return rule;
  }
  const Value* id = find_member(value, "id");
  if (!id) fail(at(place, "id"), "is missing");
  if (id) rule.id = integer(*id, at(place, "id"), UINT64_MAX);
  const Value* name = find_member(value, "name");
  if (name && !name->IsString()) fail(at(place, "name"), "must be a text");
  const Defaults own = read_defaults(value, place, defaults);
  if (find_member(value, "samples")) {
    std::set<std::string> files;
    const std::string list = at(place, "samples");
    if (const Value* samples = array_member(value, place, "samples")) {
      for (rapidjson::SizeType i = 0; i < samples->Size(); ++i) {
        rule.samples.push_back(read_sample((*samples)[i], at(list, i), own));
        if (!files.insert(rule.samples.back().file).second) {
          fail(at(list, i), "\"" + rule.samples.back().file + "\" stands twice in this rule");
        }
      }
    }
  }
  if (const Value* options = find_member(value, "dead_air")) {
    rule.dead_air = read_dead_air(*options, at(place, "dead_air"));
  }
  return rule;
}

Rules Reader::read(const Value& root) {
  Rules result;
  if (!check_object(root, "", {"threshold", "event_object", "rules"})) return result;
  const Defaults defaults = read_defaults(root, "", Defaults());
  const Value* rules = array_member(root, "", "rules");
  if (!rules) return result;
  std::set<uint64_t> ids;
  for (rapidjson::SizeType i = 0; i < rules->Size() && m_error.empty(); ++i) {
    result.rules.push_back(read_rule((*rules)[i], at("rules", i), defaults));
    if (!ids.insert(result.rules.back().id).second) {
      fail(at(at("rules", i), "id"),
           std::to_string(result.rules.back().id) + " is the id of an earlier rule");
    }
  }
  return result;
}

}  // namespace

bool is_plain_name(std::string_view name) {
  return !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
    return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
  });
}

std::optional<Rules> parse_rules(std::string_view text, std::string& error) {
  rapidjson::Document document;
  if (!parse_json(text, JsonDialect::written_by_hand, document, error)) return std::nullopt;
  Reader reader;
  Rules rules = reader.read(document);
  if (!reader.error().empty()) {
    error = reader.error();
    return std::nullopt;
  }
  return rules;
}

std::optional<Rules> read_rules(const std::string& path, std::string& error) {
  const auto text = read_file(path, error);
  if (!text) return std::nullopt;
  auto rules = parse_rules(*text, error);
  if (!rules) error = path + ": " + error;
  return rules;
}

}  // namespace cv::tools
