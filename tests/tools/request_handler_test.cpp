#include "tools/configd/request_handler.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "audio/audio_sample_packet.h"
#include "support/log_capture.h"
#include "tools/configd/event_texts.h"

namespace {

using cv::tools::Answer;
using cv::tools::Snapshot;

Snapshot make_snapshot() {
  Snapshot snapshot;
  snapshot.sample_version = 12;
  snapshot.dead_air_version = 3;
  snapshot.sample_data_json =
      cv::tools::sample_data_json({{1, 42, "greeting", 5, "{}"},
                                   {18446744073709551615u, 4294967294, "é", 4.25, R"([{"k":1}])"}});
  cv::tools::DeadAirOptions options;
  options.dev_threshold = 300;
  options.activity_hits = 4;
  snapshot.dead_air_data_json = cv::tools::dead_air_data_json({{7, options}, {8, {}}});
  snapshot.packets = {{42, {0x47, 0x48, 0, 0, 0, 0, 0, 0}}, {4294967294, {0x47, 0x48, 0xAB}}};
  return snapshot;
}

std::vector<std::string> answers(const std::string& request, std::size_t stop_after = 100) {
  std::vector<std::string> result;
  const Snapshot snapshot = make_snapshot();
  cv::tools::answer_request(request, snapshot, [&](const Answer& answer) {
    result.push_back(answer.topic + " " + answer.json);
    return result.size() < stop_after;
  });
  return result;
}

TEST(AnswerRequest, EveryRequestOfTheProtocolGetsItsEventsOnTheTopicItNames) {
  const std::string greeting =
      R"(N {"type":"corvanth_sample_list","data":{"id":42,"hash":"4748000000000000"}})";
  const std::string other =
      R"(N {"type":"corvanth_sample_list","data":{"id":4294967294,"hash":"4748ab"}})";
  const struct {
    std::string request;
    std::vector<std::string> expected;
  } table[] = {
      {R"({"type":"get_versions", "config_topic":"N"})",
       {R"(N {"type":"config_versions","data":{"corvanth_deadair_configuration":3,)"
        R"("corvanth_sample_configuration":12}})"}},
      {R"({"type":"configuration_request", "configuration":"corvanth_sample_configuration", )"
       R"("config_topic":"M"})",
       {R"(M {"type":"corvanth_sample_configuration","version":12,"data":[)"
        R"({"rule_id":1,"sample_id":42,"sample_name":"greeting","threshold":5.0,"event_object":{}},)"
        R"({"rule_id":18446744073709551615,"sample_id":4294967294,"sample_name":"é",)"
        R"("threshold":4.25,"event_object":[{"k":1}]}]})"}},
      {R"({"type":"configuration_request", "configuration":"corvanth_deadair_configuration", )"
       R"("config_topic":"N"})",
       {R"(N {"type":"corvanth_deadair_configuration","version":3,"data":[)"
        R"({"rule_id":7,"dev_threshold":300.0,"activity_hits":4},{"rule_id":8}]})"}},
      {R"({"type":"configuration_request", "configuration":"corvanth_sample_list", )"
       R"("config_topic":"N"})",
       {greeting, other}},
      {R"({"type":"configuration_request", "configuration":"corvanth_sample_list", )"
       R"("ids":[4294967294], "config_topic":"N"})",
       {other}},
      {R"({"type":"configuration_request", "configuration":"corvanth_sample_list", )"
       R"("ids":[], "config_topic":"N"})",
       {}},
  };
  for (const auto& row : table) {
    const cv::test::LogCapture log;
    EXPECT_EQ(answers(row.request), row.expected);
    EXPECT_EQ(log.count_containing("refused"), 0u) << row.request;
  }
}

TEST(AnswerRequest, AnnouncementsReadAsNodesExpectThem) {
  EXPECT_EQ(cv::tools::manager_started_event(), R"({"type":"config_manager_started"})");
}

TEST(AnswerRequest, WhatIsNoRequestGetsALogLineAndNoAnswer) {
  const std::string list = R"({"type":"configuration_request","config_topic":"N",)";
  const std::string table[] = {
      "",
      "{",
      "[]",
      "7",
      R"({"type":"get_versions"})",
      R"({"type":"get_versions", "config_topic":7})",
      R"({"type":"get_versions", "config_topic":""})",
      R"({"type":"get_version", "config_topic":"N"})",
      R"({"config_topic":"N"})",
      R"({"type":{}, "config_topic":"N"})",
      list + R"("configuration":"other"})",
      list + R"("configuration":["corvanth_sample_list"]})",
      list + R"("configuration":"corvanth_sample_list","ids":"42"})",
      list + R"("configuration":"corvanth_sample_list","ids":[42,"43"]})",
      list + R"("configuration":"corvanth_sample_list","ids":[4294967296]})",
      list + R"("configuration":"corvanth_sample_list","ids":[-1]})",
      std::string(100000, '['),
      std::string(100, '[') + std::string(100, ']'),
  };
  for (const std::string& request : table) {
    const cv::test::LogCapture log;
    EXPECT_TRUE(answers(request).empty()) << request.substr(0, 100);
    EXPECT_EQ(log.count_containing("refused"), 1u) << request.substr(0, 100);
    EXPECT_LT(log.lines().at(0).text.size(), 500u) << "a log line shows the beginning only";
  }
}

TEST(AnswerRequest, AnUnknownSampleIsNamedAndTheOthersAreSent) {
  const cv::test::LogCapture log;
  EXPECT_EQ(answers(R"({"type":"configuration_request","configuration":"corvanth_sample_list",)"
                    R"("ids":[5, 42],"config_topic":"N"})")
                .size(),
            1u);
  EXPECT_TRUE(
      log.has(cv::log::Level::WARNING, "CONFIGD: [N] asked for sample (5), which is in no rule"));
}

TEST(AnswerRequest, StopsInTheMiddleOfAListWhenToldTo) {
  const cv::test::LogCapture log;
  EXPECT_EQ(answers(R"({"type":"configuration_request","configuration":"corvanth_sample_list",)"
                    R"("config_topic":"N"})",
                    1)
                .size(),
            1u);
}

}  // namespace
