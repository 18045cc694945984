// A folder of a test and audio files to put into it.
#pragma once

#include <cmath>
#include <cstdint>
#include <sndfile.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace cv::test {

/// A sine of `amplitude` (1.0: full scale), the same on every channel.
inline std::vector<float> sine(double frequency_hz, double amplitude, int rate_hz, double seconds,
                               int channels = 1) {
  std::vector<float> samples;
  for (int i = 0; i < static_cast<int>(seconds * rate_hz); ++i) {
    const double value = amplitude * std::sin(2 * M_PI * frequency_hz * i / rate_hz);
    for (int channel = 0; channel < channels; ++channel) {
      samples.push_back(static_cast<float>(value));
    }
  }
  return samples;
}

inline void write_samples(SNDFILE* file, const std::vector<float>& samples) {
  sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
}
inline void write_samples(SNDFILE* file, const std::vector<int16_t>& samples) {
  sf_write_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
}

/// Interleaved samples as a file, with the folders above it; `format` is libsndfile's. 16-bit samples are
/// stored as they are.
template <typename Sample>
void write_sound(const std::string& path, const std::vector<Sample>& samples, int rate_hz,
                 int channels, int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  SF_INFO info{};
  info.samplerate = rate_hz;
  info.channels = channels;
  info.format = format;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) throw std::runtime_error(sf_strerror(nullptr));
  write_samples(file, samples);
  sf_close(file);
}

}  // namespace cv::test
