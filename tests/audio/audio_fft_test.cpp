#include "audio/audio_fft.h"

#include <cmath>
#include <complex>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <vector>

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

}  // namespace
