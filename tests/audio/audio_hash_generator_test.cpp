#include "audio/audio_hash_generator.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "audio/points.h"
#include "support/plain_spectrum.h"
#include "support/spectrum_kernels.h"

namespace cv::audio {
namespace {

// Worked out by hand: both flanks of a peak, then the lowest positions of equal jumps.
TEST(HashGenerator, NamesTheFourHighestJumpsOfAFrameThatIsNotFlat) {
  SpectrumFrame frame;
  frame.index = (uint64_t{1} << 32) + 5;
  frame.magnitudes.fill(5);
  frame.magnitudes[10] = 9;
  frame.magnitudes[64] = 900;
  frame.deviation = 0.999;
  EXPECT_FALSE(test::point_of(frame));
  frame.deviation = 1;
  EXPECT_EQ(test::point_of(frame), (HashPoint{10 | 11 << 6 | 1 << 12 | 2 << 18, 5}));
}

TEST(HashGenerator, AgreesWithAFullStableSort) {
  std::mt19937 random(3);
  SpectrumFrame frame;
  frame.deviation = 2;
  const auto compare = [&] {
    test::under_each_kernel([&] { ASSERT_EQ(test::point_of(frame), test::plain_hash(frame)); });
    return !HasFatalFailure();
  };
  // Jumps far apart, equal ones, and such as differ by a few units in the last place of a double.
  for (const double unit : {1.0, 0x1p-52}) {
    for (const int levels : {1, 2, 3, 10, 40, 100, 1000, 1000000}) {
      std::uniform_int_distribution<int> level(0, levels);
      for (int round = 0; round < 1000; ++round) {
        for (std::size_t j = 0; j < frame.magnitudes.size(); ++j) {
          frame.magnitudes[j] = unit == 1 || j % 2 == 0 ? 1 + level(random) * unit : 0;
        }
        ASSERT_TRUE(compare()) << levels << " levels of " << unit;
        // Three clear jumps before them: only the fourth place is a near tie.
        frame.magnitudes[0] = 1e9;
        frame.magnitudes[1] = 4e8;
        frame.magnitudes[2] = 1e8;
        ASSERT_TRUE(compare()) << levels << " levels of " << unit;
      }
    }
  }
}

}  // namespace
}  // namespace cv::audio
