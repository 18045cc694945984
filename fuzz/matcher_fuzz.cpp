// The samples detector against the plain one: for any samples, thresholds, drift and stream the same
// announcements in the same order and the same matches at the end, with the same score bits.
#include <limits>

#include "audio/points.h"
#include "fuzzing.h"
#include "support/plain_samples_detector.h"

namespace cv::fuzz {
namespace {

using test::Points;

constexpr double thresholds[] = {3,
                                 0,
                                 1,
                                 2.5,
                                 4,
                                 -1,
                                 40,
                                 0.3,
                                 std::numeric_limits<double>::quiet_NaN(),
                                 std::numeric_limits<double>::infinity()};
constexpr uint8_t drifts[] = {1, 0, 2, 3, 4, 8, 9, 40};
constexpr std::size_t most_points = 3000;

/// A frame after `frame`: the same, the next, one soon, or any.
uint32_t next_frame(FuzzedDataProvider& input, uint32_t frame) {
  const uint8_t step = input.ConsumeIntegral<uint8_t>();
  if (step < 128) return frame + 1;
  if (step < 160) return frame;
  if (step < 250) return frame + step;
  if (step < 253) return frame - step;
  if (step == 253) return 0x7FFFFF80u + input.ConsumeIntegral<uint8_t>();
  return input.ConsumeIntegral<uint32_t>();
}

/// Few hashes, so that many points share one.
uint32_t take_hash(FuzzedDataProvider& input) {
  return input.ConsumeIntegralInRange<uint8_t>(0, 63);
}

std::vector<audio::HashSample> take_samples_of_points(FuzzedDataProvider& input) {
  std::vector<audio::HashSample> samples;
  const unsigned count = input.ConsumeIntegralInRange<uint8_t>(1, 6);
  for (unsigned i = 0; i < count; ++i) {
    const double threshold = one_of(input, thresholds);
    // An identifier may be given twice.
    const uint32_t id = input.ConsumeIntegralInRange<uint8_t>(0, 7);
    Points points;
    uint32_t frame = 0;
    for (unsigned n = input.ConsumeIntegralInRange<uint8_t>(0, 120); n > 0; --n) {
      points.push_back({take_hash(input), frame});
      frame = next_frame(input, frame);
    }
    samples.push_back(test::make_sample(id, std::move(points), threshold));
  }
  return samples;
}

/// Single points, and pieces of the samples as a call would play them.
Points take_stream(FuzzedDataProvider& input, const std::vector<audio::HashSample>& samples) {
  Points stream;
  uint32_t frame = 0;
  while (input.remaining_bytes() > 0 && stream.size() < most_points) {
    frame = next_frame(input, frame);
    const uint8_t action = input.ConsumeIntegral<uint8_t>();
    if (action < 64) {
      stream.push_back({action, frame});
      continue;
    }
    const Points& played = samples[action % samples.size()].payload->points;
    std::size_t at = input.ConsumeIntegralInRange<uint8_t>(0, 119);
    for (unsigned n = input.ConsumeIntegral<uint8_t>() % 64; n > 0 && at < played.size();
         --n, ++at) {
      const uint32_t shift = played[at].offset - played[at == 0 ? 0 : at - 1].offset;
      stream.push_back({played[at].hash, frame += shift});
    }
  }
  return stream;
}

using Finding = test::Finding;

std::vector<Finding> sorted(const std::vector<audio::Match>& matches) {
  auto found = test::findings(matches);
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv;
  FuzzedDataProvider input(data, size);
  const uint8_t drift = fuzz::one_of(input, fuzz::drifts);
  const auto samples = fuzz::take_samples_of_points(input);
  const auto stream = fuzz::take_stream(input, samples);

  const test::PlainHashDatabase plain_database(samples);
  test::PlainSamplesDetector plain(plain_database, drift);
  audio::SamplesDetector detector = test::detector_of(samples, drift);
  test::MatchCollector found;
  test::MatchCollector expected;
  for (const audio::HashPoint& point : stream) {
    detector.handle_hash(point, found, nullptr);
    plain.handle_hash(point, expected, nullptr);
  }
  FUZZ_CHECK(test::findings(found.matches) == test::findings(expected.matches));
  std::vector<audio::Match> matches;
  std::vector<audio::Match> plain_matches;
  detector.get_match(matches);
  plain.get_match(plain_matches);
  // Equal scores may come in any order.
  FUZZ_CHECK(
      std::is_sorted(matches.begin(), matches.end(), audio::SamplesDetector::score_comparision));
  FUZZ_CHECK(fuzz::sorted(matches) == fuzz::sorted(plain_matches));
  return 0;
}
