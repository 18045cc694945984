// Calls to play: both sides' audio, and what a node has to report about it.
//
// Many calls play one script; a script is shared and never changes. Deterministic: the same material
// and seed give the same scripts.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "tools/load/expected_findings.h"
#include "tools/load/load_rule.h"

namespace cv::tools {

struct CallScript {
  /// A known recording that the call was given.
  struct Planted {
    std::size_t finding;  // index of the first finding that names it
    int64_t start_us;     // media time of its first sample
  };

  std::array<std::vector<int16_t>, 2> sides;  // whole blocks, of equal length
  std::array<std::vector<Fate>, 2> fates;     // by block; empty: every packet arrives
  std::vector<FeatureSwitch> switches;        // ascending
  std::vector<Finding> findings;
  std::optional<Planted> planted;

  uint32_t blocks() const;
  Fate fate(uint16_t side, uint32_t block) const {
    return fates[side].empty() ? Fate::arrives : fates[side][block];
  }
};

class ScriptWriter {
 public:
  using Recordings = std::vector<std::vector<int16_t>>;

  /// Borrows both. `background` is what the calls talk about; when it is empty they are silent.
  ScriptWriter(const Recordings& background, const LoadRule& rule, uint8_t drift_frames,
               uint64_t seed, const Impairments& impairments = {})
      : m_background(background),
        m_rule(rule),
        m_drift_frames(drift_frames),
        m_random(seed),
        m_impairments(impairments) {}

  CallScript write(uint32_t blocks);
  /// With one of the rule's recordings on one of the sides, at any sample of it. Empty when in many
  /// tries none was recognised, or none fits.
  std::optional<CallScript> write_with_prompt(uint32_t blocks);

 private:
  CallScript draft(uint32_t blocks);
  std::vector<int16_t> talk(std::size_t samples);
  bool plant(CallScript& script);
  void find(CallScript& script) const;
  std::size_t draw(std::size_t below);

  const Recordings& m_background;
  const LoadRule& m_rule;
  const uint8_t m_drift_frames;
  Random m_random;
  const Impairments m_impairments;
  double m_switched = 0;  // share of a call that is still to be switched
};

}  // namespace cv::tools
