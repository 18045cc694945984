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

TEST(AnswerRequest, EveryRequestOfTheProtocolGetsItsEventsOnTheTopicItNames) {
  const std::string greeting =
      R"(N {"type":"corvanth_sample_list","data":{"id":42,"hash":"4748000000000000"}})";
  const std::string other =
      R"(N {"type":"corvanth_sample_list","data":{"id":4294967294,"hash":"4748ab"}})";
  const std::pair<std::string, std::vector<std::string>> table[] = {
      {asking_for(R"("corvanth_deadair_configuration")"),
       {R"(N {"type":"corvanth_deadair_configuration","version":3,"data":[)"
        R"({"rule_id":7,"dev_threshold":300.0,"activity_hits":4},{"rule_id":8}]})"}},
      {asking_for(list), {greeting, other}},
      {asking_for(list, R"(,"ids":[4294967294])"), {other}},
      {asking_for(list, R"(,"ids":[])"), {}},
      {asking_for(list, R"(,"ids":[5, 42])"), {greeting}},
  };
  const test::LogCapture log;
  for (const auto& [request, expected] : table) EXPECT_EQ(answers(request), expected);
  EXPECT_EQ(log.count_containing("refused"), 0u);
  EXPECT_TRUE(
      log.has(log::Level::WARNING, "CONFIGD: [N] asked for sample (5), which is in no rule"));
  EXPECT_EQ(answers(asking_for(list), 1).size(), 1u) << "told to stop after the first";
}

TEST(AnswerRequest, WhatIsNoRequestGetsALogLineAndNoAnswer) {
  const std::string table[] = {
      R"({"type":"get_versions"})",
      R"({"type":"get_version", "config_topic":"N"})",
      asking_for(R"("other")"),
      asking_for(list, R"(,"ids":[42,"43"])"),
      std::string(100, '[') + std::string(100, ']'),
  };
  for (const std::string& request : table) {
    const test::LogCapture log;
    EXPECT_TRUE(answers(request).empty()) << request.substr(0, 100);
    EXPECT_EQ(log.count_containing("refused"), 1u) << request.substr(0, 100);
    EXPECT_LT(log.texts().at(0).size(), 500u) << "a log line shows the beginning only";
  }
}

}  // namespace
}  // namespace cv::tools
