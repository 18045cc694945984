// Frames and hashes of every kernel against the plain model, over a million frames of what calls carry
// and of what they should not.
#include "audio/audio_spectrum_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "audio/points.h"
#include "support/plain_spectrum.h"
#include "support/recordings.h"
#include "support/spectrum_kernels.h"
#include "support/workload.h"

namespace cv::audio {
namespace {

using Samples = std::vector<int16_t>;

// One signal in so many where a build makes each frame take tens of times as long.
constexpr std::size_t thinning = test::slowdown == 1 ? 1 : 25;

/// Compares signal after signal and counts their frames.
class SpectrumKernelTest : public testing::Test {
 protected:
  void compare(const std::string& name, const Samples& samples) {
    if (m_signals++ % thinning != 0) return;
    const auto expected = test::plain_frames(samples);
    std::vector<std::optional<HashPoint>> points;
    for (const SpectrumFrame& frame : expected) points.push_back(test::plain_hash(frame));
    std::vector<SpectrumFrame> first;
    test::under_each_kernel([&] {
      test::FrameCollector collector;
      SpectrumGenerator().compute_spectrum(samples.data(), samples.size(), collector, nullptr);
      const auto& frames = collector.frames;
      ASSERT_EQ(frames.size(), expected.size()) << name;
      for (std::size_t i = 0; i < frames.size(); ++i) {
        ASSERT_TRUE(test::same_frame(frames[i], expected[i])) << name;
        ASSERT_EQ(test::point_of(frames[i]), points[i]) << name;
      }
      // The statistics, which differ from the plain ones, do not differ from kernel to kernel.
      if (first.empty()) first = frames;
      EXPECT_EQ(std::memcmp(frames.data(), first.data(), first.size() * sizeof first[0]), 0)
          << name;
    });
    m_frames += expected.size();
    for (const auto& point : points) m_points += point ? 1 : 0;
  }

  std::size_t m_signals = 0;
  std::size_t m_frames = 0;
  std::size_t m_points = 0;
};

int16_t clipped(double value) {
  return static_cast<int16_t>(std::lrint(std::clamp(value, -32768.0, 32767.0)));
}

Samples signal(std::size_t frames, const std::function<double(double)>& value) {
  Samples samples(128 * (frames + 1));
  for (std::size_t n = 0; n < samples.size(); ++n) {
    samples[n] = clipped(value(static_cast<double>(n)));
  }
  return samples;
}

double sine(double bin, double n) { return std::sin(2 * std::numbers::pi * bin * n / 256); }

TEST_F(SpectrumKernelTest, AnalysesSpeechLikeThePlainModel) {
  for (const auto& prompts : {test::english_prompts(), test::french_prompts()}) {
    for (const auto& prompt : prompts) {
      for (const double gain : {1.0, 0.3, 0.01, 8.0}) {
        Samples samples = prompt.samples;
        for (int16_t& sample : samples) sample = clipped(gain * sample);
        compare(prompt.name + " times " + std::to_string(gain), samples);
      }
    }
  }
  EXPECT_GT(m_frames, 700000 / thinning);
  EXPECT_GT(m_points, 300000 / thinning);
}

TEST_F(SpectrumKernelTest, AnalysesNoiseLikeThePlainModel) {
  std::mt19937 random(11);
  for (int step = 0; step < 100; ++step) {
    // From mostly zeros, through deviations around the least that has a point, to clipping.
    const double level = 0.1 * std::pow(2.0, 0.2 * step);
    std::normal_distribution<double> noise(0, level);
    const auto value = [&](double) { return noise(random); };
    compare("noise of " + std::to_string(level), signal(2000, value));
  }
  EXPECT_GT(m_frames, 190000 / thinning);
}

TEST_F(SpectrumKernelTest, AnalysesTonesLikeThePlainModel) {
  for (const double peak : {1.0, 3.0, 40.0, 1000.0, 32767.0, 200000.0}) {
    for (double bin = 0.25; bin < 128; bin += 0.25) {
      const auto value = [&](double n) { return peak * sine(bin, n); };
      compare("tone in bin " + std::to_string(bin), signal(40, value));
    }
  }
  EXPECT_GT(m_frames, 120000 / thinning);
}

TEST_F(SpectrumKernelTest, AnalysesExtremesLikeThePlainModel) {
  for (const int value : {0, 1, -1, 100, 32767, -32768}) {
    const std::string text = std::to_string(value);
    compare("constant " + text, signal(5, [&](double) { return value; }));
    for (int at = 0; at < 256; ++at) {
      compare("impulse of " + text + " at " + std::to_string(at),
              signal(2, [&](double n) { return n == at ? value : 0; }));
    }
  }
  for (int period = 2; period <= 300; ++period) {
    const auto square = [&](double n) {
      return std::fmod(n, period) < period / 2 ? 32767 : -32768;
    };
    const auto clicks = [&](double n) { return std::fmod(n, period) == 0 ? 32767 : 0; };
    compare("square of " + std::to_string(period), signal(40, square));
    compare("clicks every " + std::to_string(period), signal(40, clicks));
  }
  EXPECT_GT(m_frames, 26000 / thinning);
}

TEST(SpectrumDispatch, TakesTheFastestKernel) {
  EXPECT_EQ(&spectrum_kernel(), usable_spectrum_kernels().back());
}

}  // namespace
}  // namespace cv::audio
