// A recording file to the sample packet that stands for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/hash_selection.h"

namespace CLI {
class App;
}

namespace cv::tools {

/// What decides a recording's points. The figures behind the defaults are in docs/recognition.md.
struct FingerprintSettings {
  /// A call never starts a recording on the hop it was fingerprinted on: it is fingerprinted from that
  /// many positions within a hop. 1 to audio::max_fingerprint_phases.
  unsigned phases = 4;
  /// Frames between two points of one hash; 1 keeps those of consecutive frames.
  unsigned spacing_frames = 2;
  /// A hash that more frames have is dropped; 0 drops none.
  unsigned max_repeat = 0;
};

/// What decides the points of all samples of a site. Whoever makes them anew (to know what a node will
/// find) has to use the same.
struct SampleSettings {
  FingerprintSettings fingerprint{};
  /// How many of the commonest hashes of all samples served are dropped.
  unsigned drop_common = 0;
};

struct Fingerprint {
  Points points{};
  std::size_t frames = 0;  // of one phase
  double seconds = 0;
};

Points fingerprint_points(std::span<const int16_t> samples, const FingerprintSettings& settings);

/// Empty, with the reason in `error`, when the file cannot be read.
std::optional<Fingerprint> fingerprint_file(const std::string& path,
                                            const FingerprintSettings& settings,
                                            std::string& error);

/// Options of a command that makes fingerprints.
void add_fingerprint_settings(CLI::App& command, FingerprintSettings& settings);
void add_sample_settings(CLI::App& command, SampleSettings& settings);

/// Two lower-case digits a byte.
std::string to_hex(const std::vector<unsigned char>& bytes);

}  // namespace cv::tools
