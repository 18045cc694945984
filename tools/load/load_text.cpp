#include "tools/load/load_text.h"

#include <iomanip>
#include <sstream>

#include "utils/utils_json.h"

namespace cv::tools {

namespace {

std::ostream& line(std::ostream& out, const char* what) {
  return out << std::left << std::setw(42) << what;
}

void delay_line(std::ostream& out, const char* what, const Delays& delays) {
  line(out, what) << std::fixed << std::setprecision(1) << "median " << delays.median_ms
                  << " ms, p95 " << delays.p95_ms << ", p99 " << delays.p99_ms << ", largest "
                  << delays.largest_ms << "\n";
}

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void write_delays(JsonWriter& writer, const char* name, const Delays& delays) {
  writer.Key(name);
  writer.StartObject();
  writer.Key("median");
  writer.Double(delays.median_ms);
  writer.Key("p95");
  writer.Double(delays.p95_ms);
  writer.Key("p99");
  writer.Double(delays.p99_ms);
  writer.Key("largest");
  writer.Double(delays.largest_ms);
  writer.EndObject();
}

}  // namespace

std::string load_text(const LoadSummary& summary) {
  const Verdict& verdict = summary.verdict;
  std::ostringstream out;
  line(out, "calls") << summary.calls_at_once << " at once, " << verdict.calls << " in all\n";
  line(out, "packets sent") << summary.packets_sent << " in " << std::fixed << std::setprecision(1)
                            << summary.seconds << " s, at most " << summary.latest_ms
                            << " ms late; refused " << summary.packets_refused << "\n";
  if (summary.packets_left_out + summary.packets_repeated != 0) {
    line(out, "audio packets lost on purpose") << summary.packets_left_out << "\n";
    line(out, "audio packets late or repeated on purpose") << summary.packets_repeated << "\n";
  }
  line(out, "findings expected") << verdict.expected << "\n";
  line(out, "reported") << verdict.reported << "\n";
  line(out, "missing") << verdict.missing << "\n";
  line(out, "wrong") << verdict.wrong << "\n";
  line(out, "known recordings reported") << verdict.prompts << "\n";
  delay_line(out, "  from its start to the report", verdict.after_start);
  delay_line(out, "from the deciding packet to the report", verdict.after_packet);
  if (verdict.foreign != 0) {
    line(out, "datagrams that were no finding") << verdict.foreign << "\n";
  }
  if (summary.reports_dropped != 0) {
    line(out, "datagrams dropped before this program") << summary.reports_dropped << "\n";
  }
  for (const std::string& example : verdict.examples) out << "  " << example << "\n";
  line(out, "verdict") << (summary.passed() ? "passed" : "FAILED") << "\n";
  return out.str();
}

std::string load_json(const LoadSummary& summary) {
  const Verdict& verdict = summary.verdict;
  rapidjson::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.StartObject();
  const std::pair<const char*, uint64_t> counts[] = {{"calls_at_once", summary.calls_at_once},
                                                     {"calls", verdict.calls},
                                                     {"packets_sent", summary.packets_sent},
                                                     {"packets_refused", summary.packets_refused},
                                                     {"packets_left_out", summary.packets_left_out},
                                                     {"packets_repeated", summary.packets_repeated},
                                                     {"expected", verdict.expected},
                                                     {"reported", verdict.reported},
                                                     {"missing", verdict.missing},
                                                     {"wrong", verdict.wrong},
                                                     {"foreign", verdict.foreign},
                                                     {"reports_dropped", summary.reports_dropped},
                                                     {"prompts", verdict.prompts}};
  for (const auto& [name, count] : counts) {
    writer.Key(name);
    writer.Uint64(count);
  }
  writer.Key("seconds");
  writer.Double(summary.seconds);
  writer.Key("latest_ms");
  writer.Double(summary.latest_ms);
  write_delays(writer, "after_start_ms", verdict.after_start);
  write_delays(writer, "after_packet_ms", verdict.after_packet);
  writer.Key("examples");
  writer.StartArray();
  for (const std::string& example : verdict.examples) writer.String(example.c_str());
  writer.EndArray();
  writer.Key("passed");
  writer.Bool(summary.passed());
  writer.EndObject();
  return buffer.GetString();
}

}  // namespace cv::tools
