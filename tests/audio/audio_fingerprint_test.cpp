#include "audio/audio_fingerprint.h"

#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "audio/points.h"
#include "support/plain_spectrum.h"
#include "support/recordings.h"

namespace cv::audio {
namespace {

/// Frame by frame, phase by phase, what is not there yet.
test::Points merged(const std::vector<int16_t>& samples, unsigned phases) {
  std::vector<test::Points> by_phase;
  for (std::size_t k = 0; k < phases; ++k) {
    by_phase.push_back(test::plain_points(std::span(samples).subspan(k * 128 / phases)));
  }
  test::Points result;
  std::set<std::pair<uint32_t, uint32_t>> seen;
  for (uint32_t frame = 0; frame < samples.size() / 128; ++frame) {
    for (const test::Points& points : by_phase) {
      for (const HashPoint& point : points) {
        const bool is_new = point.offset == frame && seen.insert({frame, point.hash}).second;
        if (is_new) result.push_back(point);
      }
    }
  }
  return result;
}

TEST(Fingerprint, MergesThePointsOfItsPhases) {
  const auto prompts = test::english_prompts(16000);
  for (const std::size_t which : {0, 50, 100}) {
    const auto& samples = prompts.at(which).samples;
    EXPECT_EQ(fingerprint(samples), test::plain_points(samples));
    for (const unsigned phases : {2u, 3u, 4u, 128u}) {
      EXPECT_EQ(fingerprint(samples, phases), merged(samples, phases)) << phases;
    }
  }
}

TEST(Fingerprint, HasNoPointsWhereThereIsNoSoundAndOneTo128Phases) {
  std::vector<int16_t> samples(255, 0);
  for (std::size_t n = 0; n < samples.size(); n += 9) samples[n] = 20000;
  EXPECT_TRUE(fingerprint(samples, 4).empty()) << "a sample short of a frame";
  samples.push_back(0);
  EXPECT_EQ(fingerprint(samples, 4).size(), 1u) << "the later phases are too short for a frame";
  for (const unsigned phases : {0u, 129u}) {
    EXPECT_THROW(fingerprint(samples, phases), std::invalid_argument);
  }
}

}  // namespace
}  // namespace cv::audio
