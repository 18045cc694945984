// The detector against the plain model on recorded speech: every announcement and every listed match,
// bit for bit. Points of any other kind are the fuzz target's ("matcher").
#include "audio/audio_samples_detector.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

#include "audio/audio_fingerprint.h"
#include "audio/points.h"
#include "support/plain_samples_detector.h"
#include "support/recordings.h"
#include "support/workload.h"

namespace cv::audio {
namespace {

using test::Points;

std::vector<test::Finding> sorted_findings(const std::vector<Match>& matches) {
  auto result = test::findings(matches);
  std::sort(result.begin(), result.end());
  return result;
}

/// Gives the number of announcements.
std::size_t compare(const std::vector<HashSample>& samples, uint8_t drift, const Points& call) {
  const test::PlainHashDatabase plain_database(samples);
  test::PlainSamplesDetector plain(plain_database, drift);
  test::MatchCollector expected;
  for (const HashPoint& point : call) plain.handle_hash(point, expected, nullptr);
  std::vector<Match> plain_matches;
  plain.get_match(plain_matches);

  SamplesDetector detector = test::detector_of(samples, drift);
  const auto database = detector.database();
  for (const char* when : {"at first", "after a reset"}) {
    SCOPED_TRACE(when);
    test::MatchCollector found;
    for (const HashPoint& point : call) detector.handle_hash(point, found, nullptr);
    EXPECT_EQ(test::findings(found.matches), test::findings(expected.matches));
    std::vector<Match> matches;
    detector.get_match(matches);
    EXPECT_TRUE(std::is_sorted(matches.begin(), matches.end(), SamplesDetector::score_comparision));
    // Equal scores may come in any order.
    EXPECT_EQ(sorted_findings(matches), sorted_findings(plain_matches));
    detector.reset();
    detector.set_database(database);
    detector.set_drift(drift);
  }
  return expected.matches.size();
}

/// A minute or less of prompts in turn, none on a multiple of the hop.
Points call_of(const std::vector<test::Recording>& prompts, std::size_t seconds) {
  std::vector<int16_t> call(1000, 3);
  for (std::size_t i = 0; call.size() < seconds * 8000; ++i) {
    const auto& heard = prompts[i * 29 % prompts.size()].samples;
    call.insert(call.end(), heard.begin(), heard.end());
    call.insert(call.end(), 200 + 37 * i, 0);
  }
  call.resize(seconds * 8000);
  return fingerprint(call);
}

/// Frames that go back, from the middle on: such votes are counted in another way.
Points out_of_order(Points call) {
  for (std::size_t i = call.size() / 2; i + 1 < call.size(); i += 5)
    std::swap(call[i], call[i + 1]);
  return call;
}

/// A database of all English prompts, of one and of four phases.
TEST(SamplesDetector, AgreesWithThePlainModelOnRecordedSpeech) {
  const auto english = test::english_prompts(8000);
  ASSERT_GT(english.size(), 200u);
  const Points calls[] = {call_of(english, 25), call_of(test::french_prompts(8000), 12),
                          out_of_order(call_of(english, 5))};
  const double speech_thresholds[] = {3, 3.5, 2, 5, 7};
  for (const unsigned phases : {1u, 4u}) {
    std::vector<HashSample> samples;
    for (uint32_t i = 0; i < english.size(); i += test::slowdown) {
      samples.push_back(test::make_sample(i, fingerprint(english[i].samples, phases),
                                          speech_thresholds[i % std::size(speech_thresholds)]));
    }
    std::size_t announced = 0;
    for (const Points& call : calls) {
      for (uint8_t drift = 0; drift <= 3; ++drift) {
        SCOPED_TRACE(int{drift});
        announced += compare(samples, drift, call);
      }
    }
    EXPECT_GT(announced, 40u / test::slowdown) << phases;
  }
}

}  // namespace
}  // namespace cv::audio
