// Audio files as the analysis wants them: one channel of 16-bit samples at 8,000 a second.
//
// A recording of that very form comes out bit for bit as it is stored; that is what makes the
// fingerprint of a prompt equal the fingerprint of the same prompt in a call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audio/audio_spectrum_generator.h"

namespace cv::tools {

inline constexpr int audio_rate_hz = 8000;
inline constexpr int64_t us_per_sample = 1000000 / audio_rate_hz;
/// From one spectrum to the next.
inline constexpr double frame_s = double{audio::frame_hop_samples} / audio_rate_hz;

/// What a file held before it was converted.
struct SourceFormat {
  int rate_hz = 0;
  int channels = 0;
};

/// Reads any file that libsndfile knows. Channels are averaged; another rate is converted with soxr
/// (high quality, no dither: the same file always gives the same samples).
/// Empty, with the reason in `error`, when the file cannot be opened or ends before its header says. Of a
/// WAV file half a kilobyte may be missing, and a size of 2 GB or more, as programs write that stream into
/// a pipe, says nothing. What AIFF, AU, W64 and VOC files lack is not noticed.
/// `format`, if given, is set once the file is open.
std::optional<std::vector<int16_t>> read_audio(const std::string& path, std::string& error,
                                               SourceFormat* format = nullptr);

/// By channel, all of one length.
using AudioChannels = std::vector<std::vector<int16_t>>;

/// As read_audio(), with each channel by itself; a file of more than `max_channels` is an error.
std::optional<AudioChannels> read_channels(const std::string& path, std::size_t max_channels,
                                           std::string& error);

}  // namespace cv::tools
