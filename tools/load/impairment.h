// What happens to a call's packets on their way, decided before the call is played: so what its node has to
// find in what is left can be worked out to the packet.
//
// Pure. Deterministic for a seed.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "media/media_packet.h"

namespace cv::tools {

/// Of one DATA packet.
enum class Fate : uint8_t {
  arrives,
  lost,
  late,  // arrives behind its successor, which does arrive; a node drops it then
  twice
};

/// Whether a node analyses the packet's audio: not when it never came, nor when it came too late.
inline bool is_heard(Fate fate) { return fate == Fate::arrives || fate == Fate::twice; }

/// A control packet in the middle of a call, just before its block's audio.
struct FeatureSwitch {
  uint32_t block = 0;
  uint8_t features = 0;
};

inline constexpr uint8_t all_features =
    media::features_sample_detection | media::features_activity_detection;

/// Shares of packets, and of calls.
struct Impairments {
  double lost = 0;
  double late = 0;
  double twice = 0;
  double switched = 0;  // calls whose features are switched under way
};

using Random = std::mt19937_64;

/// By block, for one side. Empty when every packet arrives, and then nothing is drawn.
std::vector<Fate> draw_fates(uint32_t blocks, const Impairments& impairments, Random& random);

/// Some switches in order of their blocks, off, partly off and on again.
std::vector<FeatureSwitch> draw_switches(uint32_t blocks, Random& random);

}  // namespace cv::tools
