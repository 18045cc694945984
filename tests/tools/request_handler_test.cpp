#include "tools/configd/request_handler.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "audio/audio_sample_packet.h"
#include "support/log_capture.h"
#include "tools/configd/event_texts.h"

namespace cv::tools {
namespace {

Snapshot make_snapshot() {
  Snapshot snapshot;
  snapshot.sample_version = 12;
  snapshot.dead_air_version = 3;
  snapshot.sample_data_json =
      sample_data_json({{18446744073709551615u, 42, "é", 4.25, R"([{"k":1}])"}});
  DeadAirOptions options;
  options.dev_threshold = 300;
  options.activity_hits = 4;
  snapshot.dead_air_data_json = dead_air_data_json({{7, options}, {8, {}}});
  snapshot.packets = {{42, {0x47, 0x48, 0, 0, 0, 0, 0, 0}}, {4294967294, {0x47, 0x48, 0xAB}}};
  return snapshot;
}

std::vector<std::string> answers(const std::string& request, std::size_t stop_after = 100) {
  std::vector<std::string> result;
  const Snapshot snapshot = make_snapshot();
  answer_request(request, snapshot, [&](const Answer& answer) {
    result.push_back(answer.topic + " " + answer.json);
    return result.size() < stop_after;
  });
  return result;
}

/// What a request for a configuration is, with more members.
std::string asking_for(const std::string& configuration, const std::string& more = "") {
  return R"({"type":"configuration_request", "configuration":)" + configuration + more +
         R"(, "config_topic":"N"})";
}
const std::string list = R"("corvanth_sample_list")";

TEST(AnswerRequest, GetsItsEventsOnTheTopicItNamesOrALogLine) {
  const std::string greeting =
      R"(N {"type":"corvanth_sample_list","data":{"id":42,"hash":"4748000000000000"}})";
  const std::string other =
      R"(N {"type":"corvanth_sample_list","data":{"id":4294967294,"hash":"4748ab"}})";
  const struct {
    std::string request;
    std::vector<std::string> answers;
    const char* log_line;
  } table[] = {
      {asking_for(R"("corvanth_sample_configuration")"),
       {R"(N {"type":"corvanth_sample_configuration","version":12,"data":[)"
        R"({"rule_id":18446744073709551615,"sample_id":42,"sample_name":"é",)"
        R"("threshold":4.25,"event_object":[{"k":1}]}]})"},
       ""},
      {asking_for(R"("corvanth_deadair_configuration")"),
       {R"(N {"type":"corvanth_deadair_configuration","version":3,"data":[)"
        R"({"rule_id":7,"dev_threshold":300.0,"activity_hits":4},{"rule_id":8}]})"},
       ""},
      {asking_for(list), {greeting, other}, "sending 2 sample(s) to [N]"},
      {asking_for(list, R"(,"ids":[])"), {}, "sending 0 sample(s)"},
      {asking_for(list, R"(,"ids":[5, 42])"), {greeting}, "sample (5), which is in no rule"},
      {R"({"type":"get_versions"})", {}, "refused"},
      {R"({"type":"get_version", "config_topic":"N"})", {}, "refused"},
      {asking_for(R"("other")"), {}, "refused"},
      {asking_for(list, R"(,"ids":[42,"43"])"), {}, "refused"},
      {std::string(300, '['), {}, "refused"},
  };
  for (const auto& row : table) {
    const test::LogCapture log;
    EXPECT_EQ(answers(row.request), row.answers);
    EXPECT_EQ(log.texts().empty(), *row.log_line == 0);
    EXPECT_EQ(log.has_containing(row.log_line), *row.log_line != 0) << row.log_line;
    for (const std::string& line : log.texts()) {
      EXPECT_LT(line.size(), 300u) << "a log line shows the beginning only";
    }
  }
  EXPECT_EQ(answers(asking_for(list), 1).size(), 1u) << "told to stop after the first";
}

}  // namespace
}  // namespace cv::tools
