#include "tools/configd/rules_edit.h"

#include <algorithm>
#include <cstdio>
#include <fnmatch.h>
#include <memory>
#include <utility>
#include <vector>

#include "tools/configd/rules_file.h"
#include "tools/json_text.h"
#include "utils/utils_json.h"

namespace cv::tools {

namespace {

/// A value of the text and where it stands.
struct Node {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string key;   // of a member
  std::string text;  // of a string
  bool is_string = false;
  std::vector<Node> children;  // members or items

  const Node* find(const char* name) const {
    for (const Node& child : children) {
      if (child.key == name) return &child;
    }
    return nullptr;
  }
};

/// The parser's input. One that it may not copy: its position is then always that of the token.
class Input {
 public:
  using Ch = char;

  /// Behind a byte order mark, which parse_rules() passes over as well.
  explicit Input(const std::string& text)
      : m_begin(text.c_str()), m_at(m_begin + (text.starts_with("\xEF\xBB\xBF") ? 3 : 0)) {}
  char Peek() const { return *m_at; }
  char Take() { return *m_at++; }
  std::size_t Tell() const { return static_cast<std::size_t>(m_at - m_begin); }

  // For parsing in place only, which is not done.
  char* PutBegin() { return nullptr; }
  void Put(char) {}
  void Flush() {}
  std::size_t PutEnd(char*) { return 0; }

 private:
  const char* m_begin;
  const char* m_at;
};

/// Builds the tree; called with the input behind the token.
class TreeBuilder {
 public:
  TreeBuilder(const Input& input, const std::string& text) : m_input(input), m_text(text) {
    m_open.push_back(&m_root);
  }

  const Node& root() const { return m_root.children.front(); }

  bool Null() { return add_scalar(4); }
  bool Bool(bool value) { return add_scalar(value ? 4 : 5); }
  bool RawNumber(const char*, rapidjson::SizeType length, bool) { return add_scalar(length); }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    Node& node = add(string_begin());
    node.end = m_input.Tell();
    node.is_string = true;
    node.text.assign(text, length);
    return true;
  }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    m_key.assign(text, length);
    return true;
  }
  bool StartObject() { return open(); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool StartArray() { return open(); }
  bool EndArray(rapidjson::SizeType) { return close(); }
  // Numbers come raw.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(int64_t) { return false; }
  bool Uint64(uint64_t) { return false; }
  bool Double(double) { return false; }

 private:
  Node& add(std::size_t begin) {
    Node& node = m_open.back()->children.emplace_back();
    node.begin = begin;
    node.key = std::exchange(m_key, {});
    return node;
  }
  bool add_scalar(std::size_t length) {
    add(m_input.Tell() - length).end = m_input.Tell();
    return true;
  }
  bool open() {
    // Its siblings move when more are added, but not while it is open.
    m_open.push_back(&add(m_input.Tell() - 1));
    return true;
  }
  bool close() {
    m_open.back()->end = m_input.Tell();
    m_open.pop_back();
    return true;
  }
  /// Of the string that ends here: no quote within it stands without a backslash.
  std::size_t string_begin() const {
    std::size_t at = m_input.Tell() - 2;
    while (m_text[at] != '"' || escaped(at)) --at;
    return at;
  }
  bool escaped(std::size_t at) const {
    std::size_t backslashes = 0;
    while (at > backslashes && m_text[at - backslashes - 1] == '\\') ++backslashes;
    return backslashes % 2 == 1;
  }

  const Input& m_input;
  const std::string& m_text;
  Node m_root;
  std::vector<Node*> m_open;
  std::string m_key;
};

struct Change {
  std::size_t at;
  std::size_t removed;
  std::string text;
};

std::string number_text(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string quoted(const std::string& text) {
  return to_compact_json(rapidjson::Value(rapidjson::StringRef(text.data(), text.size())));
}

/// Works out the changes of one rule.
class Editor {
 public:
  /// `samples` is the text's tree of the array that `rule` was read from.
  Editor(const std::string& text, const Rule& rule, const Node& samples)
      : m_text(text), m_rule(rule), m_samples(samples) {}

  bool set(const std::string& file, double threshold) {
    for (std::size_t i = 0; i < m_rule.samples.size(); ++i) {
      if (m_rule.samples[i].file == file) return set_named(i, threshold);
    }
    for (std::size_t i = 0; i < m_rule.samples.size(); ++i) {
      if (fnmatch(m_rule.samples[i].file.c_str(), file.c_str(), 0) != 0) continue;
      return add_entry(i, file, threshold);
    }
    return false;
  }

  std::string edited() {
    if (!m_entries.empty()) m_changes.push_back({m_samples.children.back().end, 0, m_entries});
    std::stable_sort(m_changes.begin(), m_changes.end(),
                     [](const Change& a, const Change& b) { return a.at > b.at; });
    std::string out = m_text;
    for (const Change& change : m_changes) out.replace(change.at, change.removed, change.text);
    return out;
  }

 private:
  std::string raw(const Node& node) const {
    return m_text.substr(node.begin, node.end - node.begin);
  }

  bool set_named(std::size_t index, double threshold) {
    if (m_rule.samples[index].threshold == threshold) return true;
    const Node& item = m_samples.children[index];
    const std::string member = "\"threshold\": " + number_text(threshold);
    if (item.is_string) {
      m_changes.push_back(
          {item.begin, item.end - item.begin, "{\"file\": " + raw(item) + ", " + member + "}"});
    } else if (const Node* old = item.find("threshold")) {
      m_changes.push_back({old->begin, old->end - old->begin, number_text(threshold)});
    } else {
      m_changes.push_back({item.children.back().end, 0, ", " + member});
    }
    return true;
  }

  bool add_entry(std::size_t pattern, const std::string& file, double threshold) {
    if (m_rule.samples[pattern].threshold == threshold) return true;
    m_entries += ",";
    m_entries += space();
    m_entries += "{\"file\": ";
    m_entries += quoted(file);
    m_entries += ", \"threshold\": ";
    m_entries += number_text(threshold);
    for (const char* name : {"name", "event_object"}) {
      const Node* member = m_samples.children[pattern].find(name);
      if (member) m_entries += std::string(", \"") + name + "\": " + raw(*member);
    }
    m_entries += "}";
    return true;
  }

  /// What stands in front of the last entry, if that is alone on its line.
  std::string space() const {
    const std::size_t item = m_samples.children.back().begin;
    const std::size_t line = m_text.rfind('\n', item);
    if (line == m_text.npos) return " ";
    const std::string blank = m_text.substr(line, item - line);
    return blank.find_first_not_of(" \t\n") == blank.npos ? blank : " ";
  }

  const std::string& m_text;
  const Rule& m_rule;
  const Node& m_samples;
  std::vector<Change> m_changes;
  std::string m_entries;
};

/// Of a text that parse_rules() takes.
const Node* find_samples(const Node& root, std::size_t rule) {
  return root.find("rules")->children[rule].find("samples");
}

}  // namespace

std::optional<std::string> with_thresholds(const std::string& text, uint64_t rule_id,
                                           const Thresholds& thresholds, std::string& error) {
  const auto rules = parse_rules(text, error);
  if (!rules) return std::nullopt;
  const auto rule = std::find_if(rules->rules.begin(), rules->rules.end(),
                                 [&](const Rule& each) { return each.id == rule_id; });
  Input input(text);
  TreeBuilder builder(input, text);
  // Recursive: parse_rules() has made sure that nothing nests deeply, and the iterative parser calls the
  // builder in front of a bracket.
  constexpr unsigned flags = rapidjson::kParseCommentsFlag | rapidjson::kParseTrailingCommasFlag |
                             rapidjson::kParseNumbersAsStringsFlag;
  rapidjson::Reader().Parse<flags>(input, builder);
  const Node* samples =
      rule == rules->rules.end()
          ? nullptr
          : find_samples(builder.root(), static_cast<std::size_t>(rule - rules->rules.begin()));
  if (samples == nullptr) {
    error = "rule " + std::to_string(rule_id) + " looks for no recordings";
    return std::nullopt;
  }
  Editor editor(text, *rule, *samples);
  for (const auto& [file, threshold] : thresholds) {
    if (editor.set(file, threshold)) continue;
    error = "rule " + std::to_string(rule_id) + " does not look for " + file;
    return std::nullopt;
  }
  return editor.edited();
}

}  // namespace cv::tools
