#include "tools/json_text.h"

#include <algorithm>
#include <cmath>

namespace cv::tools {

namespace {

// Not at full precision, which makes any number of a zero with an exponent ("0e308"). Without it a number
// of more than 15 digits may be off in its last bits, as it is when the node reads it.
constexpr unsigned strict_flags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
constexpr unsigned by_hand_flags =
    strict_flags | rapidjson::kParseCommentsFlag | rapidjson::kParseTrailingCommasFlag;

std::string place_of(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t line_start = before.rfind('\n') + 1;  // npos + 1 is 0
  return "line " + std::to_string(line) + ", column " +
         std::to_string(before.size() - line_start + 1);
}

bool deeper_than(const rapidjson::Value& value, int limit) {
  if (limit < 0) return true;
  if (value.IsArray()) {
    const auto items = value.GetArray();
    return std::any_of(items.begin(), items.end(),
                       [&](const auto& item) { return deeper_than(item, limit - 1); });
  }
  if (value.IsObject()) {
    const auto members = value.GetObject();
    return std::any_of(members.begin(), members.end(),
                       [&](const auto& member) { return deeper_than(member.value, limit - 1); });
  }
  return false;
}

/// What of it the writer could not write as JSON, or null. The parser lets some numbers beyond a double's
/// range through, and "\uDC00" without its first half. Nested no deeper than max_json_depth.
const char* unwritable(const rapidjson::Value& value) {
  if (value.IsString() && !is_utf8(text_of(value))) return "holds half of a surrogate pair";
  if (value.IsDouble() && !std::isfinite(value.GetDouble())) {
    return "holds a number beyond the range of a double";
  }
  if (value.IsArray()) {
    for (const auto& item : value.GetArray()) {
      if (const char* complaint = unwritable(item)) return complaint;
    }
  } else if (value.IsObject()) {
    for (const auto& member : value.GetObject()) {
      if (const char* complaint = unwritable(member.name)) return complaint;
      if (const char* complaint = unwritable(member.value)) return complaint;
    }
  }
  return nullptr;
}

}  // namespace

bool parse_json(std::string_view text, JsonDialect dialect, rapidjson::Document& document,
                std::string& error) {
  // The parser would take it for the end and never look at the rest.
  if (const auto nul = text.find('\0'); nul != text.npos) {
    error = place_of(text, nul) + ": a NUL character";
    return false;
  }
  if (dialect == JsonDialect::strict) {
    document.Parse<strict_flags>(text.data(), text.size());
  } else {
    document.Parse<by_hand_flags>(text.data(), text.size());
  }
  if (document.HasParseError()) {
    error = place_of(text, std::min(document.GetErrorOffset(), text.size())) + ": " +
            rapidjson::GetParseError_En(document.GetParseError());
    return false;
  }
  if (deeper_than(document, max_json_depth)) {
    error = "nests deeper than " + std::to_string(max_json_depth) + " levels";
    return false;
  }
  if (const char* complaint = unwritable(document)) {
    error = complaint;
    return false;
  }
  return true;
}

std::string to_compact_json(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

bool is_utf8(std::string_view text) {
  rapidjson::MemoryStream in(text.data(), text.size());
  rapidjson::StringBuffer ignored;
  while (in.Tell() < text.size()) {
    if (!rapidjson::UTF8<>::Validate(in, ignored)) return false;
  }
  return in.Tell() == text.size();
}

std::string as_utf8(std::string_view text) {
  std::string valid(text);
  if (is_utf8(text)) return valid;
  std::replace_if(
      valid.begin(), valid.end(), [](unsigned char c) { return c >= 0x80; }, '?');
  return valid;
}

const rapidjson::Value* find_member(const rapidjson::Value& object, const char* name) {
  if (!object.IsObject()) return nullptr;
  const auto found = object.FindMember(name);
  return found == object.MemberEnd() ? nullptr : &found->value;
}

}  // namespace cv::tools
