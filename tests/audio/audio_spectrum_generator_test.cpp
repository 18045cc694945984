#include "audio/audio_spectrum_generator.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "support/plain_spectrum.h"

namespace {

using cv::audio::SpectrumFrame;
using cv::audio::SpectrumGenerator;
using cv::test::FrameCollector;
using cv::test::same_frame;
using Samples = std::vector<int16_t>;

std::vector<SpectrumFrame> frames_of(const Samples& samples, std::size_t chunk) {
  SpectrumGenerator generator;
  FrameCollector collector;
  for (std::size_t at = 0; at < samples.size(); at += chunk) {
    const std::size_t count = std::min(chunk, samples.size() - at);
    generator.compute_spectrum(&samples[at], count, collector, nullptr);
  }
  return collector.frames;
}

Samples signal(std::size_t count, const std::function<double(std::size_t)>& value) {
  Samples samples(count);
  for (std::size_t n = 0; n < count; ++n) samples[n] = static_cast<int16_t>(std::lrint(value(n)));
  return samples;
}

Samples tone(double bin, double peak) {
  return signal(2000, [=](std::size_t n) {
    return peak * std::sin(2 * std::numbers::pi * bin * static_cast<double>(n) / 256);
  });
}

std::vector<std::pair<std::string, Samples>> synthetic_signals() {
  std::mt19937 random(7);
  std::vector<std::pair<std::string, Samples>> signals = {
      {"silence", Samples(2000, 0)},
      {"full scale", Samples(2000, -32768)},
      {"impulses", signal(2000, [](std::size_t n) { return n % 301 == 0 ? 32767 : 0; })},
      {"square", signal(2000, [](std::size_t n) { return n % 32 < 16 ? 32767 : -32768; })},
      {"tone", tone(16, 20000)},
      {"weak tone between bins", tone(20.37, 3)},
      {"ended", signal(2000, [](std::size_t n) { return n < 700 ? 9000 : 0; })},
  };
  for (const double level : {1.0, 10.0, 300.0, 9000.0}) {
    std::normal_distribution<double> noise(0, level);
    signals.push_back({"noise " + std::to_string(level), signal(2000, [&](std::size_t) {
                         return std::clamp(noise(random), -32768.0, 32767.0);
                       })});
  }
  return signals;
}

TEST(SpectrumGenerator, GivesTheFramesOfThePlainModelHoweverTheSamplesAreSplit) {
  for (const auto& [name, samples] : synthetic_signals()) {
    const auto expected = cv::test::plain_frames(samples);
    ASSERT_EQ(expected.size(), 14u);
    for (const std::size_t chunk : {1, 7, 127, 128, 129, 160, 255, 256, 257, 384, 2000}) {
      const auto frames = frames_of(samples, chunk);
      ASSERT_EQ(frames.size(), expected.size()) << name << " in chunks of " << chunk;
      for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_TRUE(same_frame(frames[i], expected[i])) << name << ", " << chunk << ", frame " << i;
      }
    }
  }
}

TEST(SpectrumGenerator, CompletesAFrameEvery128SamplesFromTheFirst256On) {
  SpectrumGenerator generator;
  FrameCollector collector;
  const Samples samples(1000, 100);
  const std::pair<std::size_t, std::size_t> steps[] = {{0, 0}, {255, 0}, {1, 1}, {127, 1}, {1, 2},
                                                       {0, 2}, {127, 2}, {1, 3}, {512, 7}};
  for (const auto& [count, frames] : steps) {
    generator.compute_spectrum(samples.data(), count, collector, nullptr);
    EXPECT_EQ(collector.frames.size(), frames);
  }
  for (std::size_t i = 0; i < collector.frames.size(); ++i) {
    EXPECT_EQ(collector.frames[i].index, i);
  }
}

TEST(SpectrumGenerator, MeasuresSilenceAndFullScale) {
  const SpectrumFrame silence = frames_of(Samples(256, 0), 256).at(0);
  EXPECT_TRUE(same_frame(silence, SpectrumFrame()));
  EXPECT_EQ(silence.entropy, 1);
  EXPECT_EQ(frames_of(Samples(256, -32768), 256).at(0).amplitude, 32768);
  Samples faint(256, 0);
  faint[3] = -1;
  EXPECT_EQ(frames_of(faint, 256).at(0).amplitude, 1 / 256.0);
}

TEST(SpectrumGenerator, FindsAToneInItsBin) {
  const SpectrumFrame frame = frames_of(tone(16, 10000), 160).at(0);
  const auto& magnitudes = frame.magnitudes;
  EXPECT_EQ(std::max_element(magnitudes.begin(), magnitudes.end()) - magnitudes.begin(), 15);
  // A tone of peak a has a * (sum of the window) / 2 in its bin, here scaled by 1/128; the mean of
  // its absolute values is 2 a / pi.
  EXPECT_NEAR(magnitudes[15], 10000 * 0.53656, 20);
  EXPECT_NEAR(frame.amplitude, 2 * 10000 / std::numbers::pi, 100);
  EXPECT_LT(frame.entropy, 0.5);
  double rest = 0;
  for (std::size_t j = 0; j < magnitudes.size(); ++j) {
    if (j < 13 || j > 17) rest = std::max(rest, magnitudes[j]);
  }
  EXPECT_LT(rest, magnitudes[15] / 100) << "side lobes lie more than 40 dB below";
}

TEST(SpectrumGenerator, LeavesAFrameIntactWhileTheNextOneIsBuilt) {
  struct Keeper : cv::audio::SpectrumGeneratorCallback {
    void on_spectrum_data(const SpectrumFrame& frame, void* user) override {
      EXPECT_TRUE(previous == nullptr || same_frame(*previous, copy));
      EXPECT_EQ(user, this);
      previous = &frame;
      copy = frame;
      ++frames;
    }
    const SpectrumFrame* previous = nullptr;
    SpectrumFrame copy;
    int frames = 0;
  } keeper;
  SpectrumGenerator generator;
  const Samples samples = tone(30.5, 5000);
  generator.compute_spectrum(samples.data(), samples.size(), keeper, &keeper);
  EXPECT_EQ(keeper.frames, 14);
}

}  // namespace
