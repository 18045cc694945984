#include "tools/fingerprint.h"

#include "audio/audio_fingerprint.h"
#include "audio/audio_sample_packet.h"
#include "audio/audio_spectrum_generator.h"
#include "tools/audio_file.h"

namespace cv::tools {

namespace {

std::size_t count_frames(std::size_t samples) {
  if (samples < audio::frame_window_samples) return 0;
  return (samples - audio::frame_window_samples) / audio::frame_hop_samples + 1;
}

}  // namespace

std::optional<Fingerprint> fingerprint_file(const std::string& path, unsigned phases,
                                            std::string& error) {
  const auto samples = read_audio(path, error);
  if (!samples) return std::nullopt;
  const auto points = audio::fingerprint(*samples, phases);
  return Fingerprint{audio::write_sample_packet(points), points.size(),
                     count_frames(samples->size()),
                     static_cast<double>(samples->size()) / audio_rate_hz};
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
