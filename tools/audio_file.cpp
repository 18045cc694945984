#include "tools/audio_file.h"

#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <sndfile.h>
#include <soxr.h>

namespace cv::tools {

namespace {

constexpr std::size_t block_frames = 16384;
// No audio has fewer; a broken header may say 1, which makes gigabytes of a few minutes.
constexpr int least_rate_hz = 1000;

struct CloseSound {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using Sound = std::unique_ptr<SNDFILE, CloseSound>;

struct DeleteResampler {
  void operator()(soxr* resampler) const { soxr_delete(resampler); }
};

void append_pcm(const float* samples, std::size_t count, std::vector<int16_t>& out) {
  const std::size_t begin = out.size();
  out.resize(begin + count);
  int16_t* const to = out.data() + begin;
  for (std::size_t i = 0; i < count; ++i) {
    // 32768 undoes libsndfile's scaling exactly: 16-bit audio keeps its bits.
    const float scaled = samples[i] * 32768.0F;
    const float above = scaled > -32768.0F ? scaled : -32768.0F;  // what is no number, too
    const float clamped = above < 32767.0F ? above : 32767.0F;
    // Rounds to the nearest, even ones in the middle, as lrintf() does, which is a call a sample.
    constexpr float rounding = 1.5F * (1 << 23);
    to[i] = static_cast<int16_t>(clamped + rounding - rounding);
  }
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
      append_pcm(samples, count, out);
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
      append_pcm(m_output.data(), produced, out);
    } while (!m_error && (consumed_total < count || produced == m_output.size()));
  }

  soxr_error_t m_error = nullptr;
  std::unique_ptr<soxr, DeleteResampler> m_resampler;
  std::vector<float> m_output = std::vector<float>(block_frames);
};

/// The mean of all channels.
void mix(const std::vector<float>& frames, std::size_t count, std::size_t channels,
         std::vector<float>& mono) {
  mono.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    float sum = 0;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      sum += frames[i * channels + channel];
    }
    mono[i] = sum / static_cast<float>(channels);
  }
}

void pick(const std::vector<float>& frames, std::size_t count, std::size_t channels,
          std::size_t channel, std::vector<float>& out) {
  out.resize(count);
  for (std::size_t i = 0; i < count; ++i) out[i] = frames[i * channels + channel];
}

uint32_t little_endian_at(const char* bytes) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[i]);
  return value;
}

/// Empty, or how much audio a WAV file lacks of what its header names, as after an interrupted copy:
/// libsndfile takes what is there for the whole.
std::string cut_short(const std::string& path) {
  // What streams through a pipe has no size yet: its writer names about 2 or 4 GB.
  constexpr uint32_t open_ended_bytes = 0x7F000000;
  // Of a writer that counted wrong; a prompt is found without its last 32 ms as well.
  constexpr int64_t tolerated_bytes = 512;
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const int64_t file_bytes = file.tellg();
  std::array<char, 12> riff{};
  file.seekg(0).read(riff.data(), riff.size());
  if (!file || std::memcmp(riff.data(), "RIFF", 4) != 0 ||
      std::memcmp(riff.data() + 8, "WAVE", 4) != 0) {
    return {};
  }
  std::array<char, 8> chunk{};
  while (file.read(chunk.data(), chunk.size())) {
    const uint32_t named_bytes = little_endian_at(chunk.data() + 4);
    if (std::memcmp(chunk.data(), "data", 4) != 0) {
      file.seekg(int64_t{named_bytes} + (named_bytes & 1), std::ios::cur);
      continue;
    }
    const int64_t there_bytes = file_bytes - file.tellg();
    if (named_bytes >= open_ended_bytes || there_bytes + tolerated_bytes >= named_bytes) return {};
    return "the audio ends early, after " + std::to_string(there_bytes) + " of " +
           std::to_string(named_bytes) + " bytes";
  }
  return {};
}

Sound open_sound(const std::string& path, SF_INFO& info, std::string& error) {
  Sound sound(sf_open(path.c_str(), SFM_READ, &info));
  if (!sound) {
    error = sf_strerror(nullptr);
  } else if (info.samplerate < least_rate_hz) {
    error = std::to_string(info.samplerate) + " samples a second are no audio";
    sound.reset();
  } else if (info.seekable != 0) {  // no pipe, which could not be read twice
    if (const std::string lacks = cut_short(path); !lacks.empty()) {
      error = lacks;
      sound.reset();
    }
  }
  return sound;
}

/// One side of the result with its conversion.
struct Track {
  Track(int source_rate_hz, std::vector<int16_t>& out) : converter(source_rate_hz), samples(out) {}

  Converter converter;
  std::vector<float> block;
  std::vector<int16_t>& samples;
};

/// Reads to the end. `split` puts so many interleaved frames into the tracks' blocks. False, with the
/// reason in `error`.
template <typename Split>
bool convert(SNDFILE* sound, const SF_INFO& info, AudioChannels& out, const Split& split,
             std::string& error) {
  std::vector<Track> tracks;
  tracks.reserve(out.size());
  for (auto& samples : out) tracks.emplace_back(info.samplerate, samples);
  const auto refused = [&](const Track& track) {
    if (track.converter.error() == nullptr) return false;
    error = std::string("resampling failed: ") + track.converter.error();
    return true;
  };
  std::vector<float> frames(block_frames * static_cast<std::size_t>(info.channels));
  sf_count_t total = 0;
  while (const sf_count_t count = sf_readf_float(sound, frames.data(), block_frames)) {
    if (count < 0) break;
    total += count;
    split(frames, static_cast<std::size_t>(count), tracks);
    for (Track& track : tracks) {
      track.converter.append(track.block.data(), track.block.size(), track.samples);
      if (refused(track)) return false;
    }
  }
  for (Track& track : tracks) {
    track.converter.finish(track.samples);
    if (refused(track)) return false;
  }
  if (total >= info.frames && sf_error(sound) == SF_ERR_NO_ERROR) return true;
  error = "the audio ends early, after " + std::to_string(total);
  if (info.frames != SF_COUNT_MAX) error += " of " + std::to_string(info.frames);
  error += " frames";
  return false;
}

}  // namespace

std::optional<std::vector<int16_t>> read_audio(const std::string& path, std::string& error,
                                               SourceFormat* format) {
  SF_INFO info{};
  const Sound sound = open_sound(path, info, error);
  if (!sound) return std::nullopt;
  if (format) *format = {info.samplerate, info.channels};
  AudioChannels mono(1);
  const auto channels = static_cast<std::size_t>(info.channels);
  const auto split = [channels](const std::vector<float>& frames, std::size_t count,
                                std::vector<Track>& tracks) {
    mix(frames, count, channels, tracks[0].block);
  };
  if (!convert(sound.get(), info, mono, split, error)) return std::nullopt;
  return std::move(mono[0]);
}

std::optional<AudioChannels> read_channels(const std::string& path, std::size_t max_channels,
                                           std::string& error) {
  SF_INFO info{};
  const Sound sound = open_sound(path, info, error);
  if (!sound) return std::nullopt;
  const auto channels = static_cast<std::size_t>(info.channels);
  if (channels > max_channels) {
    error = "it has " + std::to_string(channels) + " channels, and at most " +
            std::to_string(max_channels) + " are taken";
    return std::nullopt;
  }
  AudioChannels apart(channels);
  const auto split = [channels](const std::vector<float>& frames, std::size_t count,
                                std::vector<Track>& tracks) {
    for (std::size_t i = 0; i < channels; ++i) pick(frames, count, channels, i, tracks[i].block);
  };
  if (!convert(sound.get(), info, apart, split, error)) return std::nullopt;
  return apart;
}

}  // namespace cv::tools
