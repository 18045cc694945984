#include "tools/audio_file.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <sndfile.h>
#include <soxr.h>

namespace cv::tools {

namespace {

constexpr std::size_t block_frames = 16384;

struct CloseSound {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using Sound = std::unique_ptr<SNDFILE, CloseSound>;

struct DeleteResampler {
  void operator()(soxr* resampler) const { soxr_delete(resampler); }
};

int16_t to_pcm(float sample) {
  // 32768 undoes libsndfile's scaling exactly: 16-bit audio keeps its bits.
  return static_cast<int16_t>(std::clamp(std::lrint(sample * 32768.0F), -32768L, 32767L));
}

/// Appends samples at the analysis' rate, resampling on the way where the source has another.
class Converter {
 public:
  explicit Converter(int source_rate_hz) {
    if (source_rate_hz == audio_rate_hz) return;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    m_resampler.reset(
        soxr_create(source_rate_hz, audio_rate_hz, 1, &m_error, &io, &quality, nullptr));
  }

  const char* error() const { return m_error; }

  void append(const float* samples, std::size_t count, std::vector<int16_t>& out) {
    if (!m_resampler) {
      std::transform(samples, samples + count, std::back_inserter(out), to_pcm);
      return;
    }
    process(samples, count, out);
  }

  void finish(std::vector<int16_t>& out) {
    if (m_resampler) process(nullptr, 0, out);
  }

 private:
  void process(const float* samples, std::size_t count, std::vector<int16_t>& out) {
    const bool ending = samples == nullptr;
    std::size_t consumed_total = 0;
    std::size_t produced = 0;
    do {
      std::size_t consumed = 0;
      m_error = soxr_process(m_resampler.get(), ending ? nullptr : samples + consumed_total,
                             count - consumed_total, &consumed, m_output.data(), m_output.size(),
                             &produced);
      consumed_total += consumed;
      std::transform(m_output.begin(), m_output.begin() + static_cast<std::ptrdiff_t>(produced),
                     std::back_inserter(out), to_pcm);
    } while (!m_error && (consumed_total < count || produced == m_output.size()));
  }

  soxr_error_t m_error = nullptr;
  std::unique_ptr<soxr, DeleteResampler> m_resampler;
  std::vector<float> m_output = std::vector<float>(block_frames);
};

void mix_to_mono(const std::vector<float>& frames, std::size_t count, int channels,
                 std::vector<float>& mono) {
  mono.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    float sum = 0;
    for (int channel = 0; channel < channels; ++channel) {
      sum += frames[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(channel)];
    }
    mono[i] = sum / static_cast<float>(channels);
  }
}

}  // namespace

std::optional<std::vector<int16_t>> read_audio(const std::string& path, std::string& error) {
  SF_INFO info{};
  const Sound sound(sf_open(path.c_str(), SFM_READ, &info));
  if (!sound) {
    error = sf_strerror(nullptr);
    return std::nullopt;
  }
  Converter converter(info.samplerate);
  std::vector<int16_t> samples;
  std::vector<float> frames(block_frames * static_cast<std::size_t>(info.channels));
  std::vector<float> mono;
  sf_count_t total = 0;
  while (!converter.error()) {
    const sf_count_t count = sf_readf_float(sound.get(), frames.data(), block_frames);
    if (count <= 0) break;
    total += count;
    mix_to_mono(frames, static_cast<std::size_t>(count), info.channels, mono);
    converter.append(mono.data(), mono.size(), samples);
  }
  if (!converter.error()) converter.finish(samples);
  if (converter.error()) {
    error = std::string("resampling failed: ") + converter.error();
    return std::nullopt;
  }
  if (total < info.frames || sf_error(sound.get()) != SF_ERR_NO_ERROR) {
    error = "the audio ends early, after " + std::to_string(total) + " of " +
            std::to_string(info.frames) + " frames";
    return std::nullopt;
  }
  return samples;
}

}  // namespace cv::tools
