// JSON in and out, the one way all commands do it: parsing that no nesting can overflow and that
// says where a text is wrong, and compact writing.
#pragma once

#include <string>
#include <string_view>

#include "utils/utils_json.h"

namespace cv::tools {

/// Deeper texts are refused: writing a value back recurses, here and in the node that receives it.
inline constexpr int max_json_depth = 64;

enum class JsonDialect {
  strict,
  written_by_hand,  // comments and trailing commas are allowed
};

/// False, with "line L, column C: ..." in `error`, when the text is no UTF-8 JSON document or nests
/// deeper than max_json_depth.
bool parse_json(std::string_view text, JsonDialect dialect, rapidjson::Document& document,
                std::string& error);

/// Without blanks. The value must not nest deeper than max_json_depth.
std::string to_compact_json(const rapidjson::Value& value);

/// The member's value, or null when `object` is no object or has no such member.
const rapidjson::Value* find_member(const rapidjson::Value& object, const char* name);

/// Whether a JSON text may hold it.
bool is_utf8(std::string_view text);

/// `text`, or when it is no UTF-8 (the name of a file may be anything) with '?' for what is not ASCII.
std::string as_utf8(std::string_view text);

template <typename Writer>
void write_string(Writer& writer, std::string_view text) {
  const std::string valid = as_utf8(text);
  writer.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
}

inline std::string_view text_of(const rapidjson::Value& string) {
  return {string.GetString(), string.GetStringLength()};
}

}  // namespace cv::tools
