#include "tools/configd/state_file.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <utility>

#include "tools/crc64.h"
#include "tools/json_text.h"
#include "tools/text_file.h"
#include "utils/utils_json.h"

namespace cv::tools {

namespace {

using rapidjson::Value;
using PrettyWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

constexpr unsigned state_format = 1;
// The node's mark of an id that was never set.
constexpr uint32_t unset_id = UINT32_MAX;

// 64 bits are written as hexadecimal text: many JSON readers keep only 53 bits of a number.
std::string to_hex(uint64_t value) {
  std::string text(16, '0');
  for (auto digit = text.rbegin(); value != 0; value >>= 4)
    *digit++ = "0123456789abcdef"[value & 15];
  return text;
}

bool read_hex(const Value* value, uint64_t& out) {
  if (!value || !value->IsString()) return false;
  const std::string_view text = text_of(*value);
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), out, 16);
  return code == std::errc() && end == text.data() + text.size();
}

bool read_configuration(const Value& root, const char* name, StateFile::Configuration& out) {
  const Value* object = find_member(root, name);
  const Value* version = object ? find_member(*object, "version") : nullptr;
  if (!version || !version->IsUint64()) return false;
  out.version = version->GetUint64();
  return read_hex(find_member(*object, "content"), out.content);
}

/// Ascending numbers.
bool read_hashes(const Value& value, std::vector<uint32_t>& out) {
  if (!value.IsArray()) return false;
  for (const Value& hash : value.GetArray()) {
    if (!hash.IsUint() || (!out.empty() && hash.GetUint() <= out.back())) return false;
    out.push_back(hash.GetUint());
  }
  return true;
}

void write_configuration(PrettyWriter& writer, const char* name,
                         const StateFile::Configuration& value) {
  writer.Key(name);
  writer.StartObject();
  writer.Key("version");
  writer.Uint64(value.version);
  writer.Key("content");
  writer.String(to_hex(value.content).c_str());
  writer.EndObject();
}

}  // namespace

std::optional<StateFile> StateFile::open(const std::string& path, uint64_t first_version,
                                         std::string& error) {
  StateFile state(path, first_version);
  std::error_code no_status;
  if (!std::filesystem::exists(path, no_status) && !no_status) return state;
  const auto text = read_file(path, error);
  if (!text) return std::nullopt;
  if (!state.load(*text, error)) {
    error = path + ": no state file of this tool (" + error +
            "); remove it to start with fresh versions";
    return std::nullopt;
  }
  return state;
}

bool StateFile::load(std::string_view text, std::string& error) {
  rapidjson::Document document;
  if (!parse_json(text, JsonDialect::strict, document, error)) return false;
  const Value* version = find_member(document, "format");
  const Value* samples = find_member(document, "samples");
  error = "unknown format";
  if (!version || !version->IsUint() || version->GetUint() != state_format) return false;
  error = "incomplete";
  if (!samples || !samples->IsObject() ||
      !read_configuration(document, "sample_configuration", m_samples_announced) ||
      !read_configuration(document, "deadair_configuration", m_dead_air_announced)) {
    return false;
  }
  for (const auto& member : samples->GetObject()) {
    const Value* id = find_member(member.value, "id");
    Sample sample;
    if (!id || !id->IsUint() || !read_hex(find_member(member.value, "content"), sample.content)) {
      return false;
    }
    sample.id = id->GetUint();
    m_samples[std::string(text_of(member.name))] = sample;
  }
  const Value* dropped = find_member(document, "dropped_hashes");
  if (dropped && !read_hashes(*dropped, m_dropped_hashes)) return false;
  error.clear();
  return true;
}

void StateFile::set_dropped_hashes(std::vector<uint32_t> hashes) {
  if (hashes == m_dropped_hashes) return;
  m_dropped_hashes = std::move(hashes);
  m_changed = true;
}

bool StateFile::id_taken(uint32_t id, uint64_t content) const {
  return id == 0 || id == unset_id ||
         std::any_of(m_samples.begin(), m_samples.end(), [&](const auto& known) {
           return known.second.id == id && known.second.content != content;
         });
}

uint32_t StateFile::sample_id(const std::string& name, std::string_view packet) {
  const uint64_t content = crc64(packet);
  const auto known = m_samples.find(name);
  if (known != m_samples.end() && known->second.content == content) return known->second.id;
  // Both halves: the low one alone would be a CRC-32 of the packet.
  auto id = static_cast<uint32_t>(content ^ (content >> 32));
  while (id_taken(id, content)) ++id;
  m_samples[name] = Sample{id, content};
  m_changed = true;
  return id;
}

bool StateFile::update(Configuration& announced, std::string_view content) {
  const uint64_t sum = crc64(content);
  if (announced.version != 0 && announced.content == sum) return false;
  announced.version = announced.version == 0 ? m_first_version : announced.version + 1;
  announced.content = sum;
  m_changed = true;
  return true;
}

std::string StateFile::to_json() const {
  rapidjson::StringBuffer buffer;
  PrettyWriter writer(buffer);
  writer.SetIndent(' ', 2);
  writer.StartObject();
  writer.Key("format");
  writer.Uint(state_format);
  write_configuration(writer, "sample_configuration", m_samples_announced);
  write_configuration(writer, "deadair_configuration", m_dead_air_announced);
  if (!m_dropped_hashes.empty()) {
    writer.Key("dropped_hashes");
    writer.StartArray();
    for (const uint32_t hash : m_dropped_hashes) writer.Uint(hash);
    writer.EndArray();
  }
  writer.Key("samples");
  writer.StartObject();
  for (const auto& [name, sample] : m_samples) {
    writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    writer.StartObject();
    writer.Key("id");
    writer.Uint(sample.id);
    writer.Key("content");
    writer.String(to_hex(sample.content).c_str());
    writer.EndObject();
  }
  writer.EndObject();
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

bool StateFile::save(std::string& error) {
  if (!m_changed || m_in_memory) return true;
  if (!replace_file(m_path, to_json(), error)) return false;
  m_changed = false;
  return true;
}

}  // namespace cv::tools
