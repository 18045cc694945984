#include "audio/audio_spectrum_generator.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "audio/audio_fft.h"
#include "audio/audio_window.h"
#include "support/plain_spectrum.h"

namespace cv::audio {
namespace {

using Samples = std::vector<int16_t>;

SpectrumFrame first_frame(const Samples& samples) {
  test::FrameCollector collector;
  SpectrumGenerator().compute_spectrum(samples.data(), samples.size(), collector, nullptr);
  return collector.frames.at(0);
}

// Values worked out by hand: the plain model could be wrong, too.
TEST(SpectrumGenerator, MeasuresSilenceFullScaleAndATone) {
  EXPECT_TRUE(test::same_frame(first_frame(Samples(256, 0)), SpectrumFrame()));
  EXPECT_EQ(first_frame(Samples(256, -32768)).amplitude, 32768);
  Samples tone(256);
  for (int n = 0; n < 256; ++n) tone[n] = static_cast<int16_t>(10000 * std::sin(M_PI * n / 8));
  const SpectrumFrame frame = first_frame(tone);
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

TEST(SpectrumGenerator, HasTheBitsOfTheTransform) {
  std::mt19937 random(2);
  Samples samples(math::fft_size);
  for (int round = 0; round < 100; ++round) {
    math::complex data[math::fft_size];
    for (std::size_t n = 0; n < samples.size(); ++n) {
      samples[n] = static_cast<int16_t>(random());
      data[n] = {samples[n] * window_func[n], 0};
    }
    math::fft(data);
    const SpectrumFrame frame = first_frame(samples);
    for (std::size_t k = 1; k <= frame.magnitudes.size(); ++k) {
      const double power = data[k].re * data[k].re + data[k].im * data[k].im;
      ASSERT_EQ(std::sqrt(power) / 128, frame.magnitudes[k - 1]) << "bin " << k;
    }
  }
}

}  // namespace
}  // namespace cv::audio
