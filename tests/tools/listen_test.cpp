#include <gtest/gtest.h>

#include "tools/listen/report_text.h"

namespace {

using cv::tools::describe_report;
using cv::tools::ReportForm;

const std::string uuid = "00112233-4455-6677-8899-aabbccddeeff";

std::vector<std::string> rows(const std::string& datagram, ReportForm form = ReportForm::table) {
  std::string error;
  const auto lines = describe_report(datagram, form, "14:05:09.042", error);
  EXPECT_TRUE(lines) << error;
  return lines.value_or(std::vector<std::string>());
}

TEST(ReportTable, HasARowAFindingUnderItsHeading) {
  const std::string common = R"("session_uuid": ")" + uuid + R"(", "session_timestamp": 1, )";
  EXPECT_EQ(
      cv::tools::report_table_heading(),
      "time          call                                  side        type                   "
      "   offset    score  sample");
  EXPECT_EQ(
      rows(R"({"type": "corvanth_detection", )" + common +
           R"("version": 7, "call_side": "terminator", "offset": 12.8, "score": 17.5, )"
           R"("sample_id": 42, "sample_name": "busy", "event_object": {}})"),
      std::vector<std::string>{"14:05:09.042  " + uuid +
                               "  terminator  corvanth_detection        12.800    17.50  busy"});
  EXPECT_EQ(rows(R"({"type": "audio_activity", )" + common +
                 R"("call_side": "originator", "offset_ms": 0.48})"),
            std::vector<std::string>{"14:05:09.042  " + uuid +
                                     "  originator  audio_activity             0.480        -  -"});
  EXPECT_EQ(
      rows(R"({"type": "corvanth_sample_match", )" + common +
           R"("version": 7, "originator_match": [{"offset": -0.4, "score": 6.25, )"
           R"("sample_name": "a"}], "terminator_match": [{"offset": 1, "score": 5, )"
           R"("sample_name": "b"}]})"),
      (std::vector<std::string>{
          "14:05:09.042  " + uuid + "  originator  corvanth_sample_match     -0.400     6.25  a",
          "14:05:09.042  " + uuid + "  terminator  corvanth_sample_match      1.000     5.00  b"}));
}

TEST(ReportTable, ShowsWhateverIsThereOfAStrangeReport) {
  for (const char* strange :
       {"{}", R"({"type": 7, "offset": "x", "sample_name": null, "originator_match": 3})",
        R"({"originator_match": [1, null], "terminator_match": []})"}) {
    for (const std::string& row : rows(strange)) EXPECT_EQ(row.find("14:05:09.042  -"), 0u) << row;
  }
  // What came over the network must not steer the terminal.
  EXPECT_NE(rows(R"({"sample_name": "\u001b[2Jx"})").at(0).find("?[2Jx"), std::string::npos);
}

TEST(ReportLines, AreTheJsonAsItCameOnOneLine) {
  const std::string text = R"({"type": "x",  "score": 1.60, "n": 12345678901234567890})";
  EXPECT_EQ(rows(text, ReportForm::json_lines), std::vector<std::string>{text});
  EXPECT_EQ(rows("{\"a\":\n\r1}\n", ReportForm::json_lines),
            std::vector<std::string>{"{\"a\":  1} "});
}

TEST(ReportLines, WhatIsNoReportIsRefused) {
  for (const std::string& bad :
       {std::string(), std::string("hello"), std::string("{\"a\": 1"), std::string("[]"),
        std::string("1"), std::string("{} {}"), std::string("{\"a\": \"\xFF\"}"),
        std::string("{\"a\":1}\0", 8), std::string(60000, '[')}) {
    for (const ReportForm form : {ReportForm::json_lines, ReportForm::table}) {
      std::string error;
      EXPECT_FALSE(describe_report(bad, form, "", error)) << bad.substr(0, 50);
      EXPECT_FALSE(error.empty());
    }
  }
}

}  // namespace
