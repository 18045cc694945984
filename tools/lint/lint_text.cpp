#include "tools/json_text.h"
#include "tools/lint/lint_command.h"
#include "tools/text_table.h"

namespace cv::tools {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

std::string counted(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string summary(const LintResult& result) {
  const std::string of = " in " + counted(result.recordings, "recording") + " and " +
                         counted(result.rules, "rule") + "\n";
  return (result.findings.empty() ? "nothing wrong" : counted(result.findings.size(), "finding")) +
         of;
}

void write_text(Writer& writer, const char* name, std::string_view text) {
  writer.Key(name);
  write_string(writer, text);
}

void write_finding(Writer& writer, const LintFinding& finding) {
  writer.StartObject();
  write_text(writer, "kind", finding.kind);
  write_text(writer, "recording", finding.recording);
  if (finding.rule) {
    writer.Key("rule");
    writer.Uint64(*finding.rule);
  }
  if (!finding.other.empty()) write_text(writer, "other", finding.other);
  if (finding.score) {
    writer.Key("score");
    writer.Double(*finding.score);
  }
  write_text(writer, "text", finding.text);
  writer.EndObject();
}

}  // namespace

std::string lint_text(const LintResult& result) {
  if (result.findings.empty()) return summary(result);
  std::vector<std::vector<std::string>> rows;
  for (const LintFinding& finding : result.findings) {
    rows.push_back({finding.recording, std::string(finding.kind),
                    finding.rule ? std::to_string(*finding.rule) : "-",
                    finding.other.empty() ? "-" : finding.other, finding.text});
  }
  return text_table({{"recording"}, {"kind"}, {"rule", true}, {"other"}, {"what"}}, rows) +
         summary(result);
}

std::string lint_json(const LintResult& result) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.StartObject();
  writer.Key("recordings");
  writer.Uint64(result.recordings);
  writer.Key("rules");
  writer.Uint64(result.rules);
  writer.Key("findings");
  writer.StartArray();
  for (const LintFinding& finding : result.findings) write_finding(writer, finding);
  writer.EndArray();
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace cv::tools
