#include "audio/audio_spectrum_generator.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "support/plain_spectrum.h"

namespace cv::audio {
namespace {

using Samples = std::vector<int16_t>;
using test::same_frame;

std::vector<SpectrumFrame> frames_of(const Samples& samples, std::size_t chunk = 256) {
  SpectrumGenerator generator;
  test::FrameCollector collector;
  for (std::size_t at = 0; at < samples.size(); at += chunk) {
    const std::size_t count = std::min(chunk, samples.size() - at);
    generator.compute_spectrum(&samples[at], count, collector, nullptr);
  }
  return collector.frames;
}

TEST(SpectrumGenerator, GivesTheFramesOfThePlainModelHoweverTheSamplesAreSplit) {
  std::mt19937 random(7);
  Samples samples(2000);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random());
  const auto expected = test::plain_frames(samples);
  ASSERT_EQ(expected.size(), 14u);
  for (const std::size_t chunk : {1, 7, 127, 128, 129, 160, 255, 256, 257, 384, 2000}) {
    const auto frames = frames_of(samples, chunk);
    ASSERT_EQ(frames.size(), expected.size()) << "chunks of " << chunk;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_TRUE(same_frame(frames[i], expected[i])) << "chunks of " << chunk << ", frame " << i;
    }
  }
}

// Values worked out by hand: the plain model could be wrong, too.
TEST(SpectrumGenerator, MeasuresSilenceFullScaleAndATone) {
  EXPECT_TRUE(same_frame(frames_of(Samples(256, 0)).at(0), SpectrumFrame()));
  EXPECT_EQ(frames_of(Samples(256, -32768)).at(0).amplitude, 32768);
  Samples tone(256);
  for (int n = 0; n < 256; ++n) tone[n] = static_cast<int16_t>(10000 * std::sin(M_PI * n / 8));
  const SpectrumFrame frame = frames_of(tone).at(0);
  const auto& magnitudes = frame.magnitudes;
  // A tone of peak a has a * (sum of the window) / 2 in its bin, here scaled by 1/128; the mean of
  // its absolute values is 2 a / pi.
  EXPECT_NEAR(magnitudes[15], 10000 * 0.53656, 20);
  EXPECT_NEAR(frame.amplitude, 2 * 10000 / M_PI, 100);
  EXPECT_LT(frame.entropy, 0.5);
  for (std::size_t j = 0; j < magnitudes.size(); ++j) {
    const bool is_near = j >= 13 && j <= 17;
    EXPECT_TRUE(is_near || magnitudes[j] < magnitudes[15] / 100) << j;
  }
}

}  // namespace
}  // namespace cv::audio
