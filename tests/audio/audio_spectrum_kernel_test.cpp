// Frames and hashes of every kernel against the plain model, over half a million frames of what calls
// carry and of what they should not.
#include "audio/audio_spectrum_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "audio/audio_segment_detector.h"
#include "audio/points.h"
#include "support/plain_spectrum.h"
#include "support/recordings.h"
#include "support/spectrum_kernels.h"
#include "support/workload.h"

namespace cv::audio {
namespace {

using Samples = std::vector<int16_t>;

// One signal in so many where a build makes each frame take tens of times as long. A prime, so that no
// loop over kinds of signals loses one of them altogether.
constexpr std::size_t thinning = test::slowdown == 1 ? 1 : 101;

/// With thresholds that are the plain statistics, and just above them.
bool same_activity(const SpectrumFrame& frame, const SpectrumFrame& plain) {
  const auto is_active = [&](double deviation, double power) {
    return SegmentDetector({0, deviation, power, 1, 2}).is_active(frame);
  };
  const double deviation = plain.deviation, power = tonal_power(plain);
  return is_active(deviation, 99) && !is_active(std::nextafter(deviation, 1e9), 99) &&
         is_active(1e9, power) && !is_active(1e9, std::nextafter(power, 99));
}

/// Compares signal after signal and counts their frames.
class SpectrumKernelTest : public testing::Test {
 protected:
  bool left_out() { return m_signals++ % thinning != 0; }
  void compare(const std::string& name, const Samples& samples) {
    SCOPED_TRACE(name);
    const auto expected = test::plain_frames(samples);
    std::vector<SpectrumFrame> first;
    test::under_each_kernel([&] {
      test::FrameCollector collector;
      SpectrumGenerator().compute_spectrum(samples.data(), samples.size(), collector, nullptr);
      const auto& frames = collector.frames;
      ASSERT_EQ(frames.size(), expected.size());
      for (std::size_t i = 0; i < frames.size(); ++i) {
        ASSERT_TRUE(test::same_frame(frames[i], expected[i]));
        ASSERT_EQ(test::point_of(frames[i]), test::plain_hash(expected[i]));
        ASSERT_TRUE(i % 16 != 0 || same_activity(frames[i], expected[i]));
      }
      // The statistics, which differ from the plain ones, do not differ from kernel to kernel.
      if (first.empty()) first = frames;
      EXPECT_EQ(std::memcmp(frames.data(), first.data(), first.size() * sizeof first[0]), 0);
    });
    m_frames += expected.size();
  }
  void compare(const std::string& name, std::size_t frames,
               const std::function<double(double)>& value) {
    if (left_out()) return;
    Samples samples(128 * (frames + 1));
    for (std::size_t n = 0; n < samples.size(); ++n) {
      samples[n] = clipped(value(static_cast<double>(n)));
    }
    compare(name, samples);
  }
  static int16_t clipped(double value) {
    return static_cast<int16_t>(std::lrint(std::clamp(value, -32768.0, 32767.0)));
  }

  std::size_t m_signals = 0;
  std::size_t m_frames = 0;
};

TEST_F(SpectrumKernelTest, AnalysesSpeechLikeThePlainModel) {
  constexpr double gains[] = {1.0, 0.3, 0.01, 8.0};
  for (const auto& prompts : {test::english_prompts(), test::french_prompts()}) {
    for (std::size_t i = 0; i < prompts.size(); ++i) {
      if (left_out()) continue;
      Samples samples = prompts[i].samples;
      for (int16_t& sample : samples) sample = clipped(gains[i % 4] * sample);
      compare(prompts[i].name, samples);
    }
  }
  EXPECT_GT(m_frames, 150000 / thinning);
}

TEST_F(SpectrumKernelTest, AnalysesNoiseTonesAndExtremesLikeThePlainModel) {
  std::mt19937 random(11);
  for (int step = 0; step < 100; ++step) {
    // From mostly zeros, through deviations around the least that has a point, to clipping.
    std::normal_distribution<double> noise(0, 0.1 * std::pow(2.0, 0.2 * step));
    compare("noise " + std::to_string(step), 2000, [&](double) { return noise(random); });
  }
  for (const double peak : {1.0, 3.0, 40.0, 1000.0, 32767.0, 200000.0}) {
    for (double bin = 0.25; bin < 128; bin += 0.25) {
      const double step = 2 * std::numbers::pi * bin / 256;
      compare("tone in bin " + std::to_string(bin), 40,
              [&](double n) { return peak * std::sin(step * n); });
    }
  }
  for (const int value : {0, 1, -1, 100, 32767, -32768}) {
    const std::string text = std::to_string(value);
    compare("constant " + text, 5, [&](double) { return value; });
    for (int at = 0; at < 256; ++at) {
      compare("impulse of " + text + " at " + std::to_string(at), 2,
              [&](double n) { return n == at ? value : 0; });
    }
  }
  for (int period = 2; period <= 300; ++period) {
    const auto at = [&](double n) { return std::fmod(n, period); };
    compare("square of " + std::to_string(period), 40,
            [&](double n) { return at(n) < period / 2 ? 32767 : -32768; });
    // Every other one in faint noise: a spectrum that is nearly flat.
    const auto click = [&](double n) { return at(n) == 0 ? 32767 : random() % 3 * (period % 2); };
    compare("clicks every " + std::to_string(period), 40, click);
  }
  EXPECT_GT(m_frames, 340000 / thinning / 2);
}

TEST(SpectrumDispatch, TakesTheFastestKernel) {
  EXPECT_EQ(&spectrum_kernel(), usable_spectrum_kernels().back());
}

}  // namespace
}  // namespace cv::audio
