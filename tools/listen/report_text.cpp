#include "tools/listen/report_text.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/json_text.h"

namespace cv::tools {

namespace {

using rapidjson::Value;

// time, call, side, type, offset, score; the sample's name is last and as long as it is.
constexpr std::array<std::size_t, 6> widths = {12, 36, 10, 21, 9, 7};
using Cells = std::array<std::string, 7>;

std::string make_row(const Cells& cells) {
  std::string row;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    const std::string padding(widths[i] - std::min(widths[i], cells[i].size()), ' ');
    const bool number = i == 4 || i == 5;
    row += number ? padding + cells[i] : cells[i] + padding;
    row += "  ";
  }
  return row + cells.back();
}

std::string text_cell(const Value& object, const char* name) {
  const Value* value = find_member(object, name);
  return value && value->IsString() ? printable(text_of(*value)) : "-";
}

std::string number_cell(const Value& object, const char* name, const char* format) {
  const Value* value = find_member(object, name);
  if (!value || !value->IsNumber()) return "-";
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, value->GetDouble());
  return text.data();
}

/// A finding's row; `finding` holds the members of the match, which for most reports is the report.
std::string finding_row(const Value& report, const Value& finding, std::string side,
                        std::string_view time) {
  std::string offset = number_cell(finding, "offset", "%.3f");
  // In seconds, whatever its name says.
  if (offset == "-") offset = number_cell(finding, "offset_ms", "%.3f");
  return make_row({std::string(time), text_cell(report, "session_uuid"), std::move(side),
                   text_cell(report, "type"), offset, number_cell(finding, "score", "%.2f"),
                   text_cell(finding, "sample_name")});
}

std::vector<std::string> table_rows(const Value& report, std::string_view time) {
  std::vector<std::string> rows;
  for (const char* side : {"originator", "terminator"}) {
    const Value* matches = find_member(report, (std::string(side) + "_match").c_str());
    if (!matches || !matches->IsArray()) continue;
    for (const Value& match : matches->GetArray()) {
      rows.push_back(finding_row(report, match, side, time));
    }
  }
  if (rows.empty()) {
    rows.push_back(finding_row(report, report, text_cell(report, "call_side"), time));
  }
  return rows;
}

}  // namespace

std::string report_table_heading() {
  return make_row({"time", "call", "side", "type", "offset", "score", "sample"});
}

std::optional<std::vector<std::string>> describe_report(std::string_view datagram, ReportForm form,
                                                        std::string_view time, std::string& error) {
  rapidjson::Document report;
  if (!parse_json(datagram, JsonDialect::strict, report, error)) return std::nullopt;
  if (!report.IsObject()) {
    error = "is no JSON object";
    return std::nullopt;
  }
  if (form == ReportForm::table) return table_rows(report, time);
  // Line ends can stand only between values; a line is a report.
  std::string line(datagram);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return std::vector<std::string>{line};
}

std::string printable(std::string_view text) {
  std::string result(text);
  std::replace_if(
      result.begin(), result.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
  return result;
}

}  // namespace cv::tools
