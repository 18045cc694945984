// What the operator's tool reads of others: rules files, its own state file, requests of nodes, and
// reports. Whatever it makes of them must be what the next reader can read.
//
// The input's first character says what the rest is: r, s, q or p.
#include <cmath>
#include <fcntl.h>
#include <set>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzzing.h"
#include "support/temporary_folder.h"
#include "tools/configd/request_handler.h"
#include "tools/configd/rules_file.h"
#include "tools/configd/state_file.h"
#include "tools/json_text.h"
#include "tools/listen/report_text.h"

namespace cv::fuzz {
namespace {

using namespace tools;

bool is_json(const std::string& text) {
  rapidjson::Document document;
  std::string error;
  return parse_json(text, JsonDialect::strict, document, error);
}

void read_rules_file(const std::string& text) {
  std::string error;
  const auto rules = parse_rules(text, error);
  FUZZ_CHECK(rules.has_value() || !error.empty());
  if (!rules) return;
  std::set<uint64_t> ids;
  for (const Rule& rule : rules->rules) {
    FUZZ_CHECK(ids.insert(rule.id).second);
    std::set<std::string> files;
    for (const SampleUse& use : rule.samples) {
      FUZZ_CHECK(files.insert(use.file).second);
      FUZZ_CHECK(std::isfinite(use.threshold) && use.threshold > 0);
      FUZZ_CHECK(use.name.empty() || is_plain_name(use.name));
      FUZZ_CHECK(is_json(use.event_object));
    }
  }
}

/// What is read, changed and saved must be read again.
void read_state_file(const std::string& text) {
  static const test::TemporaryFolder& folder = *new test::TemporaryFolder;
  const std::string path = folder.write("state", text);
  std::string error;
  auto state = StateFile::open(path, 1000, error);
  FUZZ_CHECK(state.has_value() || !error.empty());
  if (!state) return;
  const uint32_t id = state->sample_id("new", "its content");
  state->update_samples("announced");
  FUZZ_CHECK(state->save(error));
  auto again = StateFile::open(path, 2000, error);
  FUZZ_CHECK(again.has_value());
  FUZZ_CHECK(again->sample_id("new", "its content") == id);
  FUZZ_CHECK(again->sample_version() == state->sample_version());
  FUZZ_CHECK(again->dead_air_version() == state->dead_air_version());
  FUZZ_CHECK(!again->update_samples("announced"));
}

void read_request(const std::string& text) {
  Snapshot snapshot;
  snapshot.sample_version = 3;
  snapshot.packets[7] = {0x47, 0x48, 0, 0, 0, 0, 0, 0};
  snapshot.packets[8] = snapshot.packets[7];
  answer_request(text, snapshot, [](const Answer& answer) {
    FUZZ_CHECK(!answer.topic.empty() && is_json(answer.json));
    return true;
  });
}

void read_report(const std::string& text) {
  for (const ReportForm form : {ReportForm::json_lines, ReportForm::table}) {
    std::string error;
    const auto lines = describe_report(text, form, "00:00:00.000", error);
    FUZZ_CHECK(lines.has_value() || !error.empty());
    if (!lines || form == ReportForm::json_lines) continue;
    for (const std::string& line : *lines) {
      FUZZ_CHECK(std::none_of(line.begin(), line.end(), [](unsigned char c) { return c < ' '; }));
    }
  }
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  switch (data[0]) {
    case 'r':
      cv::fuzz::read_rules_file(text);
      break;
    case 's':
      cv::fuzz::read_state_file(text);
      break;
    case 'q':
      cv::fuzz::read_request(text);
      break;
    case 'p':
      cv::fuzz::read_report(text);
      break;
  }
  return 0;
}
