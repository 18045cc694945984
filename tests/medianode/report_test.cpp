#include "medianode/report.h"

#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "audio/points.h"
#include "medianode/call_fixture.h"
#include "support/plain_samples_detector.h"

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

/// A detector that has seen whole samples named id_N, each of so many points (score log2(points)),
/// from frame 100 of the stream on.
cv::audio::SamplesDetector voted(const std::map<uint32_t, uint32_t>& points_by_sample) {
  std::vector<cv::audio::HashSample> samples;
  for (const auto& [id, count] : points_by_sample) {
    cv::test::Points points;
    for (uint32_t i = 0; i < count; ++i) points.push_back({id << 8 | i, i});
    samples.push_back(cv::test::make_sample(id, points));
    samples.back().metadata->name = "id_" + std::to_string(id);
  }
  cv::audio::SamplesDetector detector = cv::test::detector_of(samples, 1);
  cv::test::MatchCollector announced;
  for (const auto& sample : samples) {
    for (const auto& point : sample.payload->points) {
      detector.handle_hash({point.hash, point.offset + 100}, announced, nullptr);
    }
  }
  return detector;
}

TEST(Report, WritesADetectionToTheByte) {
  const std::string head = R"({"type": "corvanth_detection", )" + common + R"(, "version": 7, )";
  EXPECT_EQ(text_of(*detection({{}, 17.5, 800, 0, 200}, 1, "id_42", R"({"k": 1})")),
            head + R"("call_side": "terminator", "offset": 12.8, "score": 17.5, "sample_id": 42, )"
                   R"("sample_name": "id_42", "sample_start": 0, "sample_duration": 3.2, )"
                   R"("event_object": {"k": 1}})");
  // Six digits, texts as they are, and an end before the start wraps.
  EXPECT_EQ(text_of(*detection({{}, 1e7 / 3, -5, 3, 2}, 0, R"(say "hi")", "null")),
            head + R"("call_side": "originator", "offset": -0.08, "score": 3.33333e+06, )"
                   R"("sample_id": 42, "sample_name": "say "hi"", "sample_start": 0.048, )"
                   R"("sample_duration": 6.87195e+07, "event_object": null})");
}

TEST(Report, ASessionReportListsBothSidesByScoreAndIsSilentWithoutMatches) {
  const auto two = voted({{3, 8}, {4, 16}});
  const auto below_threshold = voted({{3, 7}});
  const auto report = [](const auto* originator, const auto* terminator) {
    return text_of(cv::mn::AudioDetectorSessionReport(make_session(), 7, originator, terminator));
  };
  const std::string head = R"({"type": "corvanth_sample_match", )" + common + R"(, "version": 7, )";
  const std::string matches =
      R"([{"offset": 1.6, "score": 4, "sample_id": 4, "sample_name": "id_4", "sample_start": 0, )"
      R"("sample_duration": 0.256}, {"offset": 1.6, "score": 3, "sample_id": 3, )"
      R"("sample_name": "id_3", "sample_start": 0, "sample_duration": 0.128}])";
  const cv::audio::SamplesDetector* none = nullptr;
  EXPECT_EQ(report(none, &below_threshold), "");
  EXPECT_EQ(report(&two, none),
            head + R"("originator_match": )" + matches + R"(, "terminator_match": []})");
  EXPECT_EQ(report(&below_threshold, &two),
            head + R"("originator_match": [], "terminator_match": )" + matches + "}");
}

}  // namespace
