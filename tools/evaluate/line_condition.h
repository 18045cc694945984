// What a telephone line does to the audio before a node hears it, as said on the command line.
//
//   clean              nothing
//   gain:DB            louder or, negative, softer; what is too loud is clipped
//   mulaw, alaw, gsm   through that codec and back
//   noise:DB           white Gaussian noise, DB below what is played
//   offset[:SAMPLES]   0 to 127 samples of silence in front, SAMPLES or random ones: where the frames
//                      begin decides more about a recognition than any codec
//
// Several are joined by '+' and take effect from left to right: "gsm+noise:10".
//
// The noise is that much below the active part of the recordings played (of the whole side, where none
// is played): the blocks of 20 ms that are at most 30 dB below the loudest of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "tools/evaluate/sound_codec.h"

namespace cv::tools {

/// Samples of a side, the end excluded.
struct SampleRange {
  std::size_t begin = 0;
  std::size_t end = 0;
};

class LineCondition {
 public:
  /// Empty, with the reason in `error`, when the text is none of the above.
  static std::optional<LineCondition> parse(const std::string& text, std::string& error);

  const std::string& text() const { return m_text; }

  /// Changes `audio`, and moves `plays`, where recordings are played in it, with it. Deterministic but
  /// for what `random` draws.
  void apply(std::vector<int16_t>& audio, std::vector<SampleRange>& plays,
             std::mt19937_64& random) const;

 private:
  enum class Kind { clean, gain, codec, noise, offset };

  struct Step {
    Kind kind = Kind::clean;
    SoundCodec codec = SoundCodec::mulaw;
    std::optional<double> value{};  // dB or samples
  };

  static std::optional<Step> parse_step(const std::string& text, std::string& error);
  static void apply_step(const Step& step, std::vector<int16_t>& audio,
                         std::vector<SampleRange>& plays, std::mt19937_64& random);

  std::string m_text;
  std::vector<Step> m_steps;
};

/// Mean square of the active part, see above; 0 when all is silence.
double active_power(const std::vector<int16_t>& audio, std::span<const SampleRange> parts);

}  // namespace cv::tools
