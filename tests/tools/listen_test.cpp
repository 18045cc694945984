#include <gtest/gtest.h>

#include "tools/listen/report_text.h"

namespace cv::tools {
namespace {

using Rows = std::vector<std::string>;

const std::string uuid = "00112233-4455-6677-8899-aabbccddeeff";

Rows rows(const std::string& datagram, ReportForm form = ReportForm::table) {
  std::string error;
  const auto lines = describe_report(datagram, form, "14:05:09.042", error);
  EXPECT_TRUE(lines) << error;
  return lines.value_or(Rows());
}

TEST(ReportTable, HasARowAFinding) {
  const std::string call = R"("session_uuid": ")" + uuid + R"(", )";
  const std::string row = "14:05:09.042  " + uuid + "  ";
  EXPECT_EQ(rows(R"({"type": "corvanth_detection", )" + call +
                 R"("call_side": "terminator", "offset": 12.8, "score": 17.5, )"
                 R"("sample_id": 42, "sample_name": "busy"})"),
            (Rows{row + "terminator  corvanth_detection        12.800    17.50  busy"}));
  EXPECT_EQ(rows(R"({"type": "audio_activity", )" + call +
                 R"("call_side": "originator", "offset_ms": 0.48})"),
            (Rows{row + "originator  audio_activity             0.480        -  -"}));
  EXPECT_EQ(rows(R"({"type": "corvanth_sample_match", )" + call +
                 R"("originator_match": [{"offset": -0.4, "score": 6.25, "sample_name": "a"}], )"
                 R"("terminator_match": [{"offset": 1, "score": 5, "sample_name": "b"}]})"),
            (Rows{row + "originator  corvanth_sample_match     -0.400     6.25  a",
                  row + "terminator  corvanth_sample_match      1.000     5.00  b"}));
}

TEST(ReportTable, ShowsWhateverIsThereOfAStrangeReport) {
  EXPECT_EQ(
      rows(R"({"type": 7, "offset": "x", "originator_match": 3})").at(0).find("14:05:09.042  -"),
      0u);
  // What came over the network must not steer the terminal.
  EXPECT_NE(rows(R"({"sample_name": "\u001b[2Jx"})").at(0).find("?[2Jx"), std::string::npos);
}

TEST(ReportLines, WhatIsNoReportIsRefused) {
  for (const std::string& bad :
       {std::string("{} {}"), std::string("[]"), std::string(60000, '[')}) {
    for (const ReportForm form : {ReportForm::json_lines, ReportForm::table}) {
      std::string error;
      EXPECT_FALSE(describe_report(bad, form, "", error)) << bad.substr(0, 50);
      EXPECT_FALSE(error.empty());
    }
  }
}

}  // namespace
}  // namespace cv::tools
