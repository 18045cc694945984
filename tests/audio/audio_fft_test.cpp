#include "audio/audio_fft.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "audio/audio_window.h"
#include "support/plain_spectrum.h"

namespace cv::math {
namespace {

// The spectra are those of this transform, to the last bit.
TEST(Fft, GivesTheBitsOfTheSpectra) {
  std::mt19937 random(2);
  std::vector<int16_t> samples(256 * 100);
  for (int16_t& sample : samples) sample = static_cast<int16_t>(random());
  for (const auto& frame : test::plain_frames(samples)) {
    complex data[fft_size];
    for (size_t n = 0; n < fft_size; ++n) {
      data[n] = {samples[frame.index * 128 + n] * audio::window_func[n], 0};
    }
    fft(data);
    for (size_t k = 1; k <= 127; ++k) {
      const double power = data[k].re * data[k].re + data[k].im * data[k].im;
      ASSERT_EQ(std::sqrt(power) / 128, frame.magnitudes[k - 1]) << frame.index << ", bin " << k;
    }
  }
}

}  // namespace
}  // namespace cv::math
