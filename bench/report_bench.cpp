// The text of a detection report: the product's and that of a character stream left to itself, side by
// side. Both make a stream a report, as the report manager does.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <sstream>
#include <string>

#include "medianode/call_fixture.h"
#include "medianode/report.h"
#include "ratio_main.h"
#include "utils/utils_str.h"

namespace cv::bench {

namespace {

const mn::AudioDetectorStreamReport& report() {
  static const mn::AudioDetectorStreamReport one(
      test::make_session(6000), 7,
      {test::make_sample(42, "all-circuits-busy-now", R"({"k": 1, "name": "busy"})"), 5.1748, 800,
       3, 212},
      1);
  return one;
}

std::string fast_text() {
  static mn::ReportManagerStatistic statistic;
  std::ostringstream out;
  report().serialize(out, statistic);
  return std::move(out).str();
}

std::string plain_text() {
  const mn::AudioDetectorStreamReport& r = report();
  const audio::Match& match = r.m_match;
  std::ostringstream out;
  out << "{\"type\": \"corvanth_detection\", \"session_uuid\": \""
      << utils::str::print_uuid(r.m_session->m_uuid.data())
      << "\", \"session_timestamp\": " << r.m_session->m_ts << ", \"version\": " << r.m_version
      << ", \"call_side\": \"" << (r.m_side == 0 ? "originator" : "terminator")
      << "\", \"offset\": " << match.offset * 0.016 << ", \"score\": " << match.score
      << ", \"sample_id\": " << match.sample->id << ", \"sample_name\": \"" << match.sample->name
      << "\", \"sample_start\": " << match.start * 0.016
      << ", \"sample_duration\": " << (match.end - match.start) * 0.016
      << ", \"event_object\": " << match.sample->event_object << "}";
  return out.str();
}

template <std::string text()>
void write(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(text());
}

}  // namespace

}  // namespace cv::bench

int main(int argc, char** argv) {
  using namespace cv::bench;
  if (plain_text() != fast_text()) {
    std::fprintf(stderr, "the texts differ:\n%s\n%s\n", plain_text().c_str(), fast_text().c_str());
    return 1;
  }
  benchmark::RegisterBenchmark("report/detection/plain", write<plain_text>)->MinTime(0.1);
  benchmark::RegisterBenchmark("report/detection/fast", write<fast_text>)->MinTime(0.1);
  return run(argc, argv);
}
