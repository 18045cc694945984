#include "medianode/report.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "medianode/call_fixture.h"

namespace {

using cv::rc_ptr;
using cv::audio::Match;
using cv::mn::Report;
using cv::test::make_sample;
using cv::test::make_session;

const std::string common =
    "\"session_uuid\": \"00112233-4455-6677-8899-aabbccddeeff\", \"session_timestamp\": 1635500000";

std::string text_of(const Report& report) {
  cv::mn::ReportManagerStatistic statistic;
  std::ostringstream out;
  report.serialize(out, statistic);
  return out.str();
}

/// Of a sample with identifier 42.
rc_ptr<Report> detection(Match match, uint16_t side, const std::string& name,
                         const std::string& event_object) {
  match.sample = make_sample(42, name, event_object);
  return new cv::mn::AudioDetectorStreamReport(make_session(), 7, match, side);
}

TEST(Report, WritesADetectionToTheByte) {
  const std::string head = R"({"type": "corvanth_detection", )" + common + R"(, "version": 7, )";
  EXPECT_EQ(text_of(*detection({{}, 17.5, 800, 0, 200}, 1, "id_42", R"({"k": 1})")),
            head + R"("call_side": "terminator", "offset": 12.8, "score": 17.5, "sample_id": 42, )"
                   R"("sample_name": "id_42", "sample_start": 0, "sample_duration": 3.2, )"
                   R"("event_object": {"k": 1}})");
  EXPECT_EQ(text_of(*detection({{}, 1234567, -5, 1, 2}, 0, "", "null")),
            head + R"("call_side": "originator", "offset": -0.08, "score": 1.23457e+06, )"
                   R"("sample_id": 42, "sample_name": "", "sample_start": 0.016, )"
                   R"("sample_duration": 0.016, "event_object": null})");
  // Six digits, texts as they are, and an end before the start wraps.
  EXPECT_EQ(text_of(*detection({{}, 10.0 / 3, 225001, 3, 2}, 2, R"(say "hi")", "1")),
            head + R"("call_side": "terminator", "offset": 3600.02, "score": 3.33333, )"
                   R"("sample_id": 42, "sample_name": "say "hi"", "sample_start": 0.048, )"
                   R"("sample_duration": 6.87195e+07, "event_object": 1})");
}

TEST(Report, ASessionReportListsBothSidesByScoreAndIsSilentWithoutMatches) {
  cv::test::VotedDetector two({{3, 8}, {4, 16}});
  cv::test::VotedDetector below_threshold({{3, 7}});
  const auto report = [](const auto* originator, const auto* terminator) {
    return text_of(cv::mn::AudioDetectorSessionReport(make_session(), 7, originator, terminator));
  };
  const std::string head = R"({"type": "corvanth_sample_match", )" + common + R"(, "version": 7, )";
  const std::string matches =
      R"([{"offset": 1.6, "score": 4, "sample_id": 4, "sample_name": "id_4", "sample_start": 0, )"
      R"("sample_duration": 0.256}, {"offset": 1.6, "score": 3, "sample_id": 3, )"
      R"("sample_name": "id_3", "sample_start": 0, "sample_duration": 0.128}])";
  const cv::audio::SamplesDetector* none = nullptr;
  EXPECT_EQ(report(none, &below_threshold.detector), "");
  EXPECT_EQ(report(&two.detector, none),
            head + R"("originator_match": )" + matches + R"(, "terminator_match": []})");
  EXPECT_EQ(report(&below_threshold.detector, &two.detector),
            head + R"("originator_match": [], "terminator_match": )" + matches + "}");
}

TEST(Report, EachKindHasItsCounterAndItsSwitch) {
  using Statistic = cv::mn::ReportManagerStatistic;
  using Configuration = cv::mn::Configuration;
  cv::test::VotedDetector voted({{3, 8}});
  struct {
    rc_ptr<Report> report;
    cv::Counter Statistic::*counter;
    bool Configuration::*transfer;
  } const table[] = {
      {detection({}, 0, "", "{}"), &Statistic::detection_reports,
       &Configuration::sample_detection_transfer},
      {new cv::mn::AudioDetectorSessionReport(make_session(), 7, &voted.detector, nullptr),
       &Statistic::sample_match_reports, &Configuration::sample_detection_transfer},
      {new cv::mn::AudioActivityReport(make_session(), 0, 0), &Statistic::audio_activity_reports,
       &Configuration::audio_activity_transfer},
  };
  for (const auto& row : table) {
    Statistic statistic;
    std::ostringstream out;
    row.report->serialize(out, statistic);
    for (auto counter : {&Statistic::detection_reports, &Statistic::sample_match_reports,
                         &Statistic::audio_activity_reports}) {
      EXPECT_EQ((statistic.*counter).get(), counter == row.counter ? 1u : 0u);
    }
    for (auto transfer :
         {&Configuration::sample_detection_transfer, &Configuration::audio_activity_transfer}) {
      Configuration configuration;
      EXPECT_TRUE(row.report->transfer_enabled(configuration));
      configuration.*transfer = false;
      EXPECT_EQ(row.report->transfer_enabled(configuration), transfer != row.transfer);
    }
  }
}

}  // namespace
