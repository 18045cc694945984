// What a node has to report about a call, worked out from the call's audio.
//
// The node's own analysis is deterministic, so the same code run over the same audio, at leisure,
// gives every finding and the packet that decides it. A report that then does not come, or another
// one that does, is a fault on the way: lost packets, lost reports, a node that is too slow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/load/impairment.h"
#include "tools/load/load_rule.h"

namespace cv::tools {

struct Finding {
  enum class Kind : uint8_t { sample, activity };

  Kind kind = Kind::sample;
  uint16_t side = 0;        // 0 originator, 1 terminator
  std::string sample_name;  // of a sample
  uint32_t block = 0;       // the DATA packet of that side that decides it, counted from 0

  bool same_report(const Finding& other) const {
    return kind == other.kind && side == other.side && sample_name == other.sample_name;
  }
};

/// One side of a call as it is played; nothing is owned.
struct PlayedSide {
  std::span<const int16_t> audio;
  uint16_t side = 0;
  std::span<const Fate> fates = {};              // by block; empty: every packet arrives
  std::span<const FeatureSwitch> switches = {};  // ascending; all features are on before them
};

/// The findings of one call side in the order in which its node reports them. `drift_frames` is the
/// node's setting; the other settings are the node's defaults. Any thread.
std::vector<Finding> expected_findings(const PlayedSide& played, const LoadRule& rule,
                                       uint8_t drift_frames);

}  // namespace cv::tools
