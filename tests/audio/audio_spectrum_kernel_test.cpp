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

#include "support/plain_spectrum.h"
#include "support/recordings.h"
#include "support/spectrum_kernels.h"

namespace {

using cv::audio::HashPoint;
using cv::audio::SpectrumFrame;
using Samples = std::vector<int16_t>;

// One signal in so many where a build makes each frame take tens of times as long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::size_t thinning = 25;
#else
constexpr std::size_t thinning = 1;
#endif

/// Holds the frames it is given, and their points, to the expected ones.
class Comparison : public cv::audio::SpectrumGeneratorCallback,
                   public cv::audio::HashGeneratorCallback {
 public:
  Comparison(const std::vector<SpectrumFrame>& frames,
             const std::vector<std::optional<HashPoint>>& points)
      : m_frames(frames), m_points(points) {}

  void on_spectrum_data(const SpectrumFrame& frame, void*) override {
    m_point.reset();
    m_generator.compute_hash(frame, *this, nullptr);
    const bool same = m_count < m_frames.size() && cv::test::same_frame(frame, m_frames[m_count]) &&
                      m_point == m_points[m_count];
    ++m_count;
    if (!same) ++m_different;
  }
  void on_hash_data(HashPoint point, void*) override { m_point = point; }

  bool all_same() const { return m_count == m_frames.size() && m_different == 0; }

 private:
  const std::vector<SpectrumFrame>& m_frames;
  const std::vector<std::optional<HashPoint>>& m_points;
  cv::audio::HashGenerator m_generator;
  std::optional<HashPoint> m_point;
  std::size_t m_count = 0;
  std::size_t m_different = 0;
};

/// Compares signal after signal and counts their frames.
class Comparer {
 public:
  void compare(const std::string& name, const Samples& samples) {
    if (m_signals++ % thinning != 0) return;
    const auto frames = cv::test::plain_frames(samples);
    std::vector<std::optional<HashPoint>> points;
    for (const SpectrumFrame& frame : frames) points.push_back(cv::test::plain_hash(frame));
    cv::test::under_each_kernel([&] {
      Comparison comparison(frames, points);
      cv::audio::SpectrumGenerator generator;
      generator.compute_spectrum(samples.data(), samples.size(), comparison, nullptr);
      EXPECT_TRUE(comparison.all_same()) << name;
    });
    m_frames += frames.size();
    for (const auto& point : points) m_points += point ? 1 : 0;
  }

  std::size_t frames() const { return m_frames; }
  std::size_t points() const { return m_points; }

 private:
  std::size_t m_signals = 0;
  std::size_t m_frames = 0;
  std::size_t m_points = 0;
};

int16_t clipped(double value) {
  return static_cast<int16_t>(std::lrint(std::clamp(value, -32768.0, 32767.0)));
}

constexpr std::size_t samples_of(std::size_t frames) { return 128 * (frames + 1); }

Samples signal(std::size_t frames, const std::function<double(double)>& value) {
  Samples samples(samples_of(frames));
  for (std::size_t n = 0; n < samples.size(); ++n) {
    samples[n] = clipped(value(static_cast<double>(n)));
  }
  return samples;
}

double sine(double bin, double n) { return std::sin(2 * std::numbers::pi * bin * n / 256); }

TEST(SpectrumKernel, AnalysesSpeechLikeThePlainModel) {
  Comparer comparer;
  const auto english = cv::test::english_prompts();
  const auto french = cv::test::french_prompts();
  for (const auto* prompts : {&english, &french}) {
    for (const auto& prompt : *prompts) {
      for (const double gain : {1.0, 0.3, 0.01, 8.0}) {
        Samples samples = prompt.samples;
        for (int16_t& sample : samples) sample = clipped(gain * sample);
        comparer.compare(prompt.name + " times " + std::to_string(gain), samples);
      }
    }
  }
  EXPECT_GT(comparer.frames(), 700000 / thinning);
  EXPECT_GT(comparer.points(), 300000 / thinning);
}

TEST(SpectrumKernel, AnalysesNoiseLikeThePlainModel) {
  Comparer comparer;
  std::mt19937 random(11);
  for (int step = 0; step < 100; ++step) {
    // From mostly zeros, through deviations around the least that has a point, to clipping.
    const double level = 0.1 * std::pow(2.0, 0.2 * step);
    std::normal_distribution<double> noise(0, level);
    comparer.compare("noise of " + std::to_string(level),
                     signal(2000, [&](double) { return noise(random); }));
  }
  EXPECT_GT(comparer.frames(), 190000 / thinning);
}

TEST(SpectrumKernel, AnalysesTonesAndMusicLikeThePlainModel) {
  Comparer comparer;
  for (const double peak : {1.0, 3.0, 40.0, 1000.0, 32767.0, 200000.0}) {
    for (double bin = 0.25; bin < 128; bin += 0.25) {
      comparer.compare("tone in bin " + std::to_string(bin) + ", " + std::to_string(peak),
                       signal(40, [&](double n) { return peak * sine(bin, n); }));
    }
  }
  std::mt19937 random(12);
  std::uniform_real_distribution<double> pitch(2, 30);
  for (int piece = 0; piece < 200; ++piece) {
    double bins[3];
    for (double& bin : bins) bin = pitch(random);
    comparer.compare("chord " + std::to_string(piece), signal(400, [&](double n) {
                       double value = 0;
                       for (const double bin : bins) {
                         for (int k = 1; k <= 6; ++k) value += sine(k * bin, n) / k;
                       }
                       return 5000 * value * std::exp(-n / 20000);
                     }));
  }
  EXPECT_GT(comparer.frames(), 180000 / thinning);
}

TEST(SpectrumKernel, AnalysesExtremesLikeThePlainModel) {
  Comparer comparer;
  for (const int16_t value : std::initializer_list<int16_t>{0, 1, -1, 32767, -32768}) {
    comparer.compare("constant " + std::to_string(value), Samples(samples_of(5), value));
  }
  for (std::size_t at = 0; at < 256; ++at) {
    for (const int16_t value : std::initializer_list<int16_t>{1, -1, 100, 32767, -32768}) {
      Samples samples(samples_of(2), 0);
      samples[at] = value;
      comparer.compare("impulse at " + std::to_string(at), samples);
    }
  }
  for (int period = 2; period <= 300; ++period) {
    comparer.compare("square of " + std::to_string(period), signal(40, [&](double n) {
                       return static_cast<int>(n) % period < period / 2 ? 32767 : -32768;
                     }));
    comparer.compare("clicks every " + std::to_string(period), signal(40, [&](double n) {
                       return static_cast<int>(n) % period == 0 ? 32767 : 0;
                     }));
  }
  EXPECT_GT(comparer.frames(), 26000 / thinning);
}

TEST(SpectrumKernel, GivesTheBitsOfTheBaselineInEveryStatistic) {
  const auto prompt = cv::test::english_prompts(40000).front();
  std::vector<SpectrumFrame> baseline;
  cv::test::under_each_kernel([&] {
    cv::audio::SpectrumGenerator generator;
    cv::test::FrameCollector collector;
    generator.compute_spectrum(prompt.samples.data(), prompt.samples.size(), collector, nullptr);
    if (baseline.empty()) baseline = collector.frames;
    ASSERT_EQ(collector.frames.size(), baseline.size());
    const std::size_t size = baseline.size() * sizeof baseline[0];
    EXPECT_EQ(std::memcmp(collector.frames.data(), baseline.data(), size), 0);
  });
  EXPECT_GT(baseline.size(), 300u);
}

TEST(SpectrumKernel, IsTheLastUsableOneUnlessAnotherIsChosen) {
  const auto kernels = cv::audio::usable_spectrum_kernels();
  EXPECT_EQ(&cv::audio::spectrum_kernel(), kernels.back());
  {
    const cv::test::KernelInUse in_use(*kernels.front());
    EXPECT_EQ(&cv::audio::spectrum_kernel(), kernels.front());
  }
  EXPECT_EQ(&cv::audio::spectrum_kernel(), kernels.back());
}

}  // namespace
