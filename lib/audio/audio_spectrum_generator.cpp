#include "audio/audio_spectrum_generator.h"

#include <algorithm>
#include <cstring>

#include "audio/audio_spectrum_dispatch.h"
#include "audio/audio_spectrum_statistics.h"
#include "core/prefetch.h"

namespace cv::audio {

namespace {

/// Where the kernels' rounding matters: at the deviation from which on a frame has a point; near
/// silence, which has no entropy; and where the magnitudes are so much alike (a lone click) that their
/// deviation is rounding.
bool wants_exact_statistics(const SpectrumFrame& frame) {
  return in_doubt(frame.deviation, least_hash_deviation) ||
         (frame.mean > 0 && (frame.mean < 1e-15 || frame.deviation < 1e-6 * frame.mean));
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

void SpectrumGenerator::prefetch_samples() const {
  const std::size_t position = (m_head + m_count) % frame_window_samples;
  // A packet of 20 ms fills five lines; what goes round lies beside what was asked for.
  prefetch(&m_ring[position],
           sizeof(int16_t) * std::min(frame_hop_samples, frame_window_samples - position));
}

void SpectrumGenerator::append(const short* samples, std::size_t count) {
  // Never crosses the end of the ring: what is free is the second half of a new ring's window, or
  // exactly one half.
  const std::size_t position = (m_head + m_count) % frame_window_samples;
  std::memcpy(&m_ring[position], samples, count * sizeof *samples);
  m_count += count;
}

void SpectrumGenerator::build_frame(SpectrumFrame& frame) {
  const std::size_t newer = frame_hop_samples - m_head;
  FrameStatistics statistics;
  spectrum_kernel().analyse(&m_ring[m_head], &m_ring[newer], frame.magnitudes.data(), &statistics);
  frame.mean = statistics.mean;
  frame.power = statistics.power;
  frame.entropy = statistics.entropy;
  frame.deviation = statistics.deviation;
  frame.amplitude = statistics.amplitude;
  if (wants_exact_statistics(frame)) take_exact_statistics(frame);
  m_head = newer;
  m_count = frame_hop_samples;

  frame.index = m_next_index++;
  m_current = 1 - m_current;
}

}  // namespace cv::audio
