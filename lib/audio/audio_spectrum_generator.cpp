#include "audio/audio_spectrum_generator.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "audio/audio_fft.h"
#include "audio/audio_window.h"

namespace cv::audio {

namespace {

using Bins = std::array<math::complex, math::fft_size>;

constexpr double log2_of_127 = 6.9886846867721655;
static_assert(frame_window_samples == math::fft_size);

/// Weights one half of the window into `bins`; the sum of the absolute samples.
uint32_t weight(const int16_t* samples, const double* window, math::complex* bins) {
  uint32_t absolute_sum = 0;
  for (std::size_t n = 0; n < frame_hop_samples; ++n) {
    const int sample = samples[n];
    bins[n] = {sample * window[n], 0};
    absolute_sum +=
        static_cast<uint32_t>(std::abs(sample));  // at most 256 * 32768 over both halves
  }
  return absolute_sum;
}

double deviation_of(const SpectrumFrame& frame) {
  double sum = 0;
  for (const double magnitude : frame.magnitudes) {
    const double difference = magnitude - frame.mean;
    sum += difference * difference;
  }
  return std::sqrt(sum / frame_magnitudes);
}

double entropy_of(const SpectrumFrame& frame, double magnitude_sum) {
  double sum = 0;
  for (const double magnitude : frame.magnitudes) {
    const double p = magnitude / magnitude_sum;
    sum += p * std::log2(p + DBL_EPSILON);
  }
  return -sum / log2_of_127;
}

/// All statistics but the amplitude. The sums run in bin order: another order rounds differently, and
/// the deviation decides whether a frame has a point.
void measure(const Bins& bins, SpectrumFrame& frame) {
  double sum = 0;
  double square_sum = 0;
  for (std::size_t j = 0; j < frame_magnitudes; ++j) {
    const math::complex& bin = bins[j + 1];
    const double magnitude = std::sqrt(bin.re * bin.re + bin.im * bin.im) / 128;
    frame.magnitudes[j] = magnitude;
    sum += magnitude;
    square_sum += magnitude * magnitude;
  }
  frame.mean = sum / frame_magnitudes;
  const bool silent = !(frame.mean > DBL_EPSILON);
  frame.power = silent ? 0 : square_sum / frame_magnitudes;
  frame.deviation = silent ? 0 : deviation_of(frame);
  frame.entropy = silent ? 1 : entropy_of(frame, sum);
}

}  // namespace

void SpectrumGenerator::compute_spectrum(const short* samples, std::size_t count,
                                         SpectrumGeneratorCallback& callback, void* user) {
  while (count > 0) {
    const std::size_t taken = std::min<std::size_t>(count, frame_window_samples - m_count);
    append(samples, taken);
    samples += taken;
    count -= taken;
    if (m_count < frame_window_samples) return;
    SpectrumFrame& frame = m_frames[static_cast<std::size_t>(m_current)];
    build_frame(frame);
    callback.on_spectrum_data(frame, user);
  }
}

void SpectrumGenerator::append(const short* samples, std::size_t count) {
  // Never crosses the end of the ring: what is free is the second half of a new ring's window, or
  // exactly one half.
  const std::size_t position = (m_head + m_count) % frame_window_samples;
  std::memcpy(&m_ring[position], samples, count * sizeof *samples);
  m_count += count;
}

void SpectrumGenerator::build_frame(SpectrumFrame& frame) {
  Bins bins;
  const std::size_t newer = frame_hop_samples - m_head;
  const uint32_t absolute_sum =
      weight(&m_ring[m_head], window_func, bins.data()) +
      weight(&m_ring[newer], window_func + frame_hop_samples, &bins[frame_hop_samples]);
  frame.amplitude = absolute_sum / 256.0;
  m_head = newer;
  m_count = frame_hop_samples;

  math::fft(bins.data());
  measure(bins, frame);
  frame.index = m_next_index++;
  m_current = 1 - m_current;
}

}  // namespace cv::audio
