// The recordings that a rule looks for, as the evaluation needs them: with their audio, and as a hash
// database for every way of making fingerprints.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "audio/audio_hash_database.h"
#include "tools/configd/rules_file.h"
#include "tools/fingerprint.h"

namespace cv::tools {

struct SampleSetSource {
  std::string sample_directory;
  std::string rules_path;        // empty: all recordings
  std::optional<uint64_t> rule;  // need not be said when there is only one
};

/// One recording that the rule looks for.
struct EvaluatedSample {
  std::string name;  // as reports name it
  std::string file;  // below the sample folder
  double threshold = 0;
};

class SampleSet {
 public:
  /// Empty, with the reason in `error`. Recordings that cannot be used are left out, with a line in
  /// `complaints` each. `progress` is called with (recordings read, recordings to read).
  static std::optional<SampleSet> read(
      const SampleSetSource& source,
      const std::function<void(std::size_t done, std::size_t total)>& progress,
      std::vector<std::string>& complaints, std::string& error);

  uint64_t rule() const { return m_rule; }
  /// By position in every database.
  const std::vector<EvaluatedSample>& samples() const { return m_samples; }
  const std::vector<int16_t>& audio(std::size_t position) const {
    return m_audio.at(m_samples[position].file);
  }
  /// The position of the sample that reports call `name`, the first if there are several.
  std::optional<uint32_t> find(const std::string& name) const;

  /// What a node matches the rule's calls against, with one threshold for all samples.
  rc_ptr<audio::HashDatabase> make_database(const SampleSettings& settings, double threshold) const;

 private:
  Rules m_rules;
  uint64_t m_rule = 0;
  std::vector<EvaluatedSample> m_samples;
  std::map<std::string, std::vector<int16_t>> m_audio;  // of the whole folder
};

}  // namespace cv::tools
