// What may be wrong with a recording by itself.
//
// The limits are where recognition was measured to suffer, and beyond anything among 1,100 telephone
// prompts made with care (two speakers, two languages), but for the length and the leading silence.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/lint/lint_finding.h"

namespace cv::tools {

namespace lint_limit {

/// At the default threshold 99 % of the prompts of 2 to 3 s are found in noise 5 dB below, 90 % of
/// those of 1.5 to 2 s, 32 % of those of 1 to 1.5 s.
inline constexpr double least_sound_s = 2.0;
/// Of the level that a twentieth of the frames exceed; prompts have -11 to -23. At -40 a fifth of the
/// points differ from those of the same recording at its full level: 16 bits no longer carry it.
inline constexpr double least_level_dbfs = -40;
/// Of all samples. Prompts have none; at 1 % a twentieth of the points are others.
inline constexpr double most_clipped = 0.01;
/// Of all frames; prompts have 0.41 at most. What is silent recognises nothing.
inline constexpr double most_silent = 0.5;
/// A prompt is found 0.7 s behind its first sound (the median): half a second more is nearly twice.
inline constexpr double most_leading_silence_s = 0.5;
/// Frames in a row with one hash; prompts have 16 at most, a special information tone about 20.
inline constexpr std::size_t tone_run_frames = 18;
/// One hash in so many of the points; prompts have 0.23 at most. Catches tones that beat or warble.
inline constexpr double tone_share = 0.3;

/// Where a flat top begins: A-law ends at 32256, mu-law at 32124.
inline constexpr int clip_level = 32000;
/// So many equal samples in a row at that level are a flat top.
inline constexpr std::size_t clip_run_samples = 3;
/// A frame this far below the recording's level is silent, as is one too faint for a hash.
inline constexpr double silent_below_db = 40;

}  // namespace lint_limit

struct RecordingFacts {
  double seconds = 0;
  double level_dbfs = 0;  // of the mean amplitude that a twentieth of the frames exceed
  double clipped = 0;     // share of samples
  double silent = 0;      // share of frames
  double leading_silence_s = 0;
  double sound_s = 0;                  // from the first sound to the last
  std::size_t longest_run_frames = 0;  // of one hash
  double commonest_share = 0;          // of the points, the commonest hash's
  std::size_t commonest_frames = 0;
};

RecordingFacts recording_facts(std::span<const int16_t> samples);

/// `rate_hz` is the file's own.
std::vector<LintFinding> check_recording(const std::string& name, const RecordingFacts& facts,
                                         int rate_hz);

}  // namespace cv::tools
