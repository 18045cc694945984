#include "medianode/report.h"

#include <functional>
#include <gtest/gtest.h>
#include <locale>
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

const std::string uuid_member = "\"session_uuid\": \"00112233-4455-6677-8899-aabbccddeeff\"";
const std::string common = uuid_member + ", \"session_timestamp\": 1635500000";

std::string text_of(const Report& report, cv::mn::ReportManagerStatistic& statistic) {
  std::ostringstream out;
  report.serialize(out, statistic);
  return out.str();
}

std::string text_of(const Report& report) {
  cv::mn::ReportManagerStatistic statistic;
  return text_of(report, statistic);
}

rc_ptr<Report> stream_report(const Match& match, uint16_t side) {
  return new cv::mn::AudioDetectorStreamReport(make_session(), 7, match, side);
}

TEST(Report, WritesADetectionToTheByte) {
  const auto sample = make_sample(42, "id_42", "{\"k\": 1}");
  const auto report = stream_report({sample, 17.5, 800, 0, 200}, 1);
  EXPECT_EQ(text_of(*report),
            "{\"type\": \"corvanth_detection\", " + common +
                ", \"version\": 7, \"call_side\": \"terminator\", \"offset\": 12.8, \"score\": "
                "17.5, \"sample_id\": 42, \"sample_name\": \"id_42\", \"sample_start\": 0, "
                "\"sample_duration\": 3.2, \"event_object\": {\"k\": 1}}");
}

TEST(Report, WritesNumbersAndTextsAsTheyAre) {
  struct {
    double score;
    int32_t offset;
    uint32_t start, end;
    uint16_t side;
    const char* name;
    const char* expected;
  } const table[] = {
      {1234567, -5, 1, 2, 0, "a",
       "\"originator\", \"offset\": -0.08, \"score\": 1.23457e+06, \"sample_id\": 4294967294, "
       "\"sample_name\": \"a\", \"sample_start\": 0.016, \"sample_duration\": 0.016,"},
      // Six digits, and an end before the start wraps.
      {10.0 / 3, 225001, 3, 2, 2, "say \"hi\"",
       "\"terminator\", \"offset\": 3600.02, \"score\": 3.33333, \"sample_id\": 4294967294, "
       "\"sample_name\": \"say \"hi\"\", \"sample_start\": 0.048, \"sample_duration\": "
       "6.87195e+07,"},
      {1e-5, 0, 0, 0, 1, "",
       "\"terminator\", \"offset\": 0, \"score\": 1e-05, \"sample_id\": 4294967294, "
       "\"sample_name\": \"\", \"sample_start\": 0, \"sample_duration\": 0,"},
  };
  for (const auto& row : table) {
    const auto sample = make_sample(4294967294, row.name, "null");
    const std::string text =
        text_of(*stream_report({sample, row.score, row.offset, row.start, row.end}, row.side));
    EXPECT_NE(text.find(std::string("\"call_side\": ") + row.expected), text.npos) << text;
    EXPECT_TRUE(text.ends_with("\"event_object\": null}")) << text;
  }
}

/// Numbers as some countries write them: 1.635.500.000,5.
struct Grouping : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(Report, TheTextDependsOnNoLocaleAndNoStreamSetting) {
  const auto report = stream_report({make_sample(1000000, "n", "{}"), 1.5, 800, 0, 200}, 0);
  const std::string plain = text_of(*report);
  const std::locale previous = std::locale::global(std::locale(std::locale(), new Grouping));
  std::ostringstream out;
  std::locale::global(previous);
  out << std::hex << std::showpos << std::fixed;
  cv::mn::ReportManagerStatistic statistic;
  report->serialize(out, statistic);
  EXPECT_EQ(out.str(), plain);
}

TEST(Report, WritesAnActivityToTheByte) {
  const cv::mn::AudioActivityReport report(make_session(), 100, 0);
  EXPECT_EQ(text_of(report), "{\"type\": \"audio_activity\", " + common +
                                 ", \"call_side\": \"originator\", \"offset_ms\": 1.6}");
}

TEST(Report, ASessionReportListsBothSidesByScoreAndIsSilentWithoutMatches) {
  cv::test::VotedDetector none({});
  cv::test::VotedDetector two({{3, 8}, {4, 16}});
  cv::test::VotedDetector below_threshold({{3, 7}});
  const std::string match_3 =
      "{\"offset\": 1.6, \"score\": 3, \"sample_id\": 3, \"sample_name\": \"id_3\", "
      "\"sample_start\": 0, \"sample_duration\": 0.128}";
  const std::string match_4 =
      "{\"offset\": 1.6, \"score\": 4, \"sample_id\": 4, \"sample_name\": \"id_4\", "
      "\"sample_start\": 0, \"sample_duration\": 0.256}";
  const std::string head = "{\"type\": \"corvanth_sample_match\", " + common + ", \"version\": 7, ";
  struct {
    const cv::audio::SamplesDetector* originator;
    const cv::audio::SamplesDetector* terminator;
    std::string expected;
  } const table[] = {
      {nullptr, nullptr, ""},
      {&none.detector, &below_threshold.detector, ""},
      {&two.detector, nullptr,
       head + "\"originator_match\": [" + match_4 + ", " + match_3 +
           "], \"terminator_match\": []}"},
      {&below_threshold.detector, &two.detector,
       head + "\"originator_match\": [], \"terminator_match\": [" + match_4 + ", " + match_3 +
           "]}"},
  };
  for (const auto& row : table) {
    cv::mn::ReportManagerStatistic statistic;
    const cv::mn::AudioDetectorSessionReport report(make_session(), 7, row.originator,
                                                    row.terminator);
    EXPECT_EQ(text_of(report, statistic), row.expected);
    EXPECT_EQ(statistic.sample_match_reports.get(), row.expected.empty() ? 0u : 1u);
  }
}

TEST(Report, EachKindHasItsCounterAndItsSwitch) {
  const auto match = Match{make_sample(1, "a", "{}"), 1, 0, 0, 1};
  cv::test::VotedDetector voted({{3, 8}});
  struct {
    rc_ptr<Report> report;
    std::string counters;  // activity, detection, sample match
    bool if_detection_off, if_activity_off;
  } const table[] = {
      {new Report(make_session()), "000", true, true},
      {new cv::mn::AudioDetectionReport(make_session(), 7), "000", false, true},
      {stream_report(match, 0), "010", false, true},
      {new cv::mn::AudioDetectorSessionReport(make_session(), 7, &voted.detector, nullptr), "001",
       false, true},
      {new cv::mn::AudioActivityReport(make_session(), 0, 0), "100", true, false},
  };
  for (const auto& row : table) {
    cv::mn::ReportManagerStatistic statistic;
    EXPECT_EQ(text_of(*row.report, statistic).empty(), row.counters == "000");
    EXPECT_EQ(std::to_string(statistic.audio_activity_reports.get()) +
                  std::to_string(statistic.detection_reports.get()) +
                  std::to_string(statistic.sample_match_reports.get()),
              row.counters);
    cv::mn::Configuration configuration;
    EXPECT_TRUE(row.report->transfer_enabled(configuration));
    configuration.sample_detection_transfer = false;
    EXPECT_EQ(row.report->transfer_enabled(configuration), row.if_detection_off);
    configuration.sample_detection_transfer = true;
    configuration.audio_activity_transfer = false;
    EXPECT_EQ(row.report->transfer_enabled(configuration), row.if_activity_off);
  }
}

}  // namespace
