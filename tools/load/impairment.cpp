#include "tools/load/impairment.h"

#include <algorithm>

namespace cv::tools {

namespace {

constexpr std::size_t switches_in_a_call = 4;

/// In 0 to 1. Not a library's distribution: which numbers those draw is each library's own affair.
double draw_share(Random& random) { return static_cast<double>(random() >> 11) * 0x1p-53; }

Fate draw_fate(const Impairments& impairments, Random& random) {
  const double drawn = draw_share(random);
  if (drawn < impairments.lost) return Fate::lost;
  if (drawn < impairments.lost + impairments.late) return Fate::late;
  return drawn < impairments.lost + impairments.late + impairments.twice ? Fate::twice
                                                                         : Fate::arrives;
}

}  // namespace

std::vector<Fate> draw_fates(uint32_t blocks, const Impairments& impairments, Random& random) {
  if (impairments.lost + impairments.late + impairments.twice == 0) return {};
  std::vector<Fate> fates(blocks);
  for (std::size_t i = 0; i < fates.size(); ++i) {
    const bool successor_arrives = i != 0 && fates[i - 1] == Fate::late;
    fates[i] = successor_arrives ? Fate::arrives : draw_fate(impairments, random);
  }
  if (!fates.empty() && fates.back() == Fate::late) fates.back() = Fate::arrives;
  return fates;
}

std::vector<FeatureSwitch> draw_switches(uint32_t blocks, Random& random) {
  constexpr uint8_t samples = media::features_sample_detection;
  constexpr uint8_t activity = media::features_activity_detection;
  constexpr uint8_t of_one_side = activity & (activity - 1);
  const uint8_t kinds[] = {0, samples, activity, samples | of_one_side, all_features, all_features};
  std::vector<FeatureSwitch> switches(switches_in_a_call);
  for (FeatureSwitch& one : switches) {
    one.block = static_cast<uint32_t>(random() % blocks);
    one.features = kinds[random() % std::size(kinds)];
  }
  std::sort(switches.begin(), switches.end(),
            [](const auto& a, const auto& b) { return a.block < b.block; });
  return switches;
}

}  // namespace cv::tools
