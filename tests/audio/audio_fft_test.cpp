#include "audio/audio_fft.h"

#include <cmath>
#include <complex>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <vector>

#include "audio/audio_window.h"
#include "support/plain_spectrum.h"

namespace {

using cv::math::complex;

std::vector<complex> signal(const std::function<complex(int)>& value) {
  std::vector<complex> data;
  for (int n = 0; n < 256; ++n) data.push_back(value(n));
  return data;
}

TEST(Fft, AgreesWithTheDirectSum) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> uniform(-1, 1);
  const std::vector<std::pair<const char*, std::vector<complex>>> inputs = {
      {"noise", signal([&](int) {
         return complex{uniform(random), uniform(random)};
       })},
      {"real noise", signal([&](int) {
         return complex{uniform(random), 0};
       })},
      {"late impulse", signal([](int n) {
         return complex{n == 200 ? 1.0 : 0.0, 0};
       })},
      {"ramp", signal([](int n) {
         return complex{n / 256.0, -n / 512.0};
       })},
      {"tone between bins", signal([](int n) {
         return complex{std::cos(0.1234 * n), 0};
       })},
  };
  for (const auto& [name, input] : inputs) {
    std::vector<complex> output = input;
    cv::math::fft(output.data());
    for (int k = 0; k < 256; ++k) {
      std::complex<long double> sum = 0;
      for (int n = 0; n < 256; ++n) {
        const long double angle = -2 * std::numbers::pi_v<long double> * (n * k % 256) / 256;
        sum += std::complex<long double>(input[n].re, input[n].im) * std::polar(1.0L, angle);
      }
      EXPECT_NEAR(output[k].re, static_cast<double>(sum.real()), 1e-12) << name << " bin " << k;
      EXPECT_NEAR(output[k].im, static_cast<double>(sum.imag()), 1e-12) << name << " bin " << k;
    }
  }
}

TEST(Fft, IsExactForAnImpulseAndForAConstant) {
  auto impulse = signal([](int n) { return complex{n == 0 ? 1.0 : 0.0, 0}; });
  auto constant = signal([](int) { return complex{1, 0}; });
  cv::math::fft(impulse.data());
  cv::math::fft(constant.data());
  for (int k = 0; k < 256; ++k) {
    EXPECT_EQ(impulse[k].re, 1) << k;
    EXPECT_EQ(impulse[k].im, 0) << k;
    EXPECT_EQ(constant[k].re, k == 0 ? 256 : 0) << k;
    EXPECT_EQ(constant[k].im, 0) << k;
  }
}

// The spectra are those of this transform, to the last bit.
TEST(Fft, GivesTheBitsOfTheSpectra) {
  std::mt19937 random(2);
  std::vector<int16_t> samples(256 * 100);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random());
  const auto frames = cv::test::plain_frames(samples);
  for (const auto& frame : frames) {
    auto data = signal([&](int n) {
      return complex{samples[frame.index * 128 + n] * cv::audio::window_func[n], 0};
    });
    cv::math::fft(data.data());
    for (std::size_t k = 1; k <= 127; ++k) {
      const double power = data[k].re * data[k].re + data[k].im * data[k].im;
      ASSERT_EQ(std::sqrt(power) / 128, frame.magnitudes[k - 1]) << frame.index << ", bin " << k;
    }
  }
}

}  // namespace
