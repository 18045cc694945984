#include "tools/fingerprint.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "audio/audio_fingerprint.h"
#include "audio/audio_spectrum_generator.h"
#include "tools/audio_file.h"

namespace cv::tools {

namespace {

std::size_t count_frames(std::size_t samples) {
  if (samples < audio::frame_window_samples) return 0;
  return (samples - audio::frame_window_samples) / audio::frame_hop_samples + 1;
}

}  // namespace

std::optional<Fingerprint> fingerprint_file(const std::string& path,
                                            const FingerprintSettings& settings,
                                            std::string& error) {
  const auto samples = read_audio(path, error);
  if (!samples) return std::nullopt;
  return Fingerprint{fingerprint_points(*samples, settings), count_frames(samples->size()),
                     static_cast<double>(samples->size()) / audio_rate_hz};
}

Points fingerprint_points(std::span<const int16_t> samples, const FingerprintSettings& settings) {
  Points points = audio::fingerprint(samples, settings.phases);
  // In this order: what repeats is what repeats apart.
  return drop_repeated(space_out(std::move(points), settings.spacing_frames), settings.max_repeat);
}

void add_fingerprint_settings(CLI::App& command, FingerprintSettings& settings) {
  command.add_option("--phases", settings.phases, "positions within a frame to fingerprint from")
      ->check(CLI::Range(1u, audio::max_fingerprint_phases))
      ->capture_default_str();
  command
      .add_option("--spacing", settings.spacing_frames,
                  "least number of frames from a hash to its next point; 1 keeps all")
      ->check(CLI::Range(1u, 1000u))
      ->capture_default_str();
  command
      .add_option("--max-repeat", settings.max_repeat,
                  "drop a hash that more frames of its recording have; 0 drops none")
      ->check(CLI::Range(0u, 1000000u))
      ->capture_default_str();
}

void add_sample_settings(CLI::App& command, SampleSettings& settings) {
  add_fingerprint_settings(command, settings.fingerprint);
  command
      .add_option("--drop-common", settings.drop_common,
                  "drop this many of the commonest hashes of all recordings served")
      ->check(CLI::Range(0u, 100000u))
      ->capture_default_str();
}

std::string to_hex(const std::vector<unsigned char>& bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const unsigned char byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

}  // namespace cv::tools
