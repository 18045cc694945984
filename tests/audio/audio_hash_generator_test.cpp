#include "audio/audio_hash_generator.h"

#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <vector>

#include "support/plain_spectrum.h"
#include "support/spectrum_kernels.h"

namespace {

using cv::audio::HashPoint;
using cv::audio::SpectrumFrame;

std::optional<HashPoint> point_of(const SpectrumFrame& frame) {
  cv::audio::HashGenerator generator;
  cv::audio::HashExtractor extractor;
  std::vector<HashPoint> points;
  generator.compute_hash(frame, extractor, &points);
  EXPECT_LE(points.size(), 1u);
  return points.empty() ? std::nullopt : std::optional(points.front());
}

uint32_t packed(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3) {
  return i0 | i1 << 6 | i2 << 12 | i3 << 18;
}

TEST(HashGenerator, NamesTheFourHighestJumps) {
  struct Case {
    const char* name;
    std::vector<std::pair<std::size_t, double>> magnitudes;  // all others are 5
    uint32_t hash;
  };
  const Case cases[] = {
      {"all equal: the lowest positions", {}, packed(1, 2, 3, 4)},
      {"one peak: both flanks, then the lowest", {{10, 9}}, packed(10, 11, 1, 2)},
      {"a dip counts like a peak", {{10, 1}}, packed(10, 11, 1, 2)},
      {"two peaks, the higher first", {{10, 9}, {40, 12}}, packed(40, 41, 10, 11)},
      {"position 63 is the last", {{63, 9}}, packed(63, 1, 2, 3)},
      {"bins above the 64th do not take part", {{64, 900}, {100, 7000}}, packed(1, 2, 3, 4)},
      {"position 1 is the first", {{0, 50}, {30, 6}}, packed(1, 30, 31, 2)},
      {"a later higher jump goes before", {{20, 8}, {50, 8.5}}, packed(50, 51, 20, 21)},
  };
  for (const Case& c : cases) {
    SpectrumFrame frame;
    frame.deviation = 1;
    frame.magnitudes.fill(5);
    for (const auto& [j, magnitude] : c.magnitudes) frame.magnitudes[j] = magnitude;
    const auto point = point_of(frame);
    ASSERT_TRUE(point) << c.name;
    EXPECT_EQ(point->hash, c.hash) << c.name;
  }
}

TEST(HashGenerator, WantsADeviationOfOneAndKeepsTheLowBitsOfTheIndex) {
  SpectrumFrame frame;
  frame.index = (uint64_t{1} << 32) + 5;
  frame.deviation = 0.999;
  EXPECT_FALSE(point_of(frame));
  frame.deviation = 1.0;
  ASSERT_TRUE(point_of(frame));
  EXPECT_EQ(point_of(frame)->offset, 5u);
}

TEST(HashGenerator, AgreesWithAFullStableSort) {
  std::mt19937 random(3);
  const auto agrees = [](const SpectrumFrame& frame) {
    bool all = true;
    cv::test::under_each_kernel(
        [&] { all = all && point_of(frame) == cv::test::plain_hash(frame); });
    return all;
  };
  for (const int levels : {2, 3, 10, 1000000}) {
    std::uniform_int_distribution<int> level(0, levels);
    for (int round = 0; round < 2000; ++round) {
      SpectrumFrame frame;
      frame.index = static_cast<uint64_t>(round);
      frame.deviation = 2;
      for (double& magnitude : frame.magnitudes) magnitude = level(random);
      ASSERT_TRUE(agrees(frame)) << levels << " levels, " << round;
    }
  }
  // Jumps that differ by a few units in the last place of a double, or not at all.
  for (const int units : {1, 2, 40, 100, 1000}) {
    std::uniform_int_distribution<int> unit(0, units);
    for (int round = 0; round < 2000; ++round) {
      SpectrumFrame frame;
      frame.deviation = 2;
      for (std::size_t j = 0; j < frame.magnitudes.size(); j += 2) {
        frame.magnitudes[j] = 1 + unit(random) * 0x1p-52;
      }
      ASSERT_TRUE(agrees(frame)) << units << " units, " << round;
      // Three clear jumps before them: only the fourth place is a near tie.
      frame.magnitudes[0] = 1000;
      frame.magnitudes[1] = 400;
      frame.magnitudes[2] = 100;
      ASSERT_TRUE(agrees(frame)) << units << " units, " << round;
    }
  }
}

}  // namespace
