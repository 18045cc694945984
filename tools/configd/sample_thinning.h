// The samples of a site without the hashes that are commonest among them: what nodes are told when
// hashes are dropped from the whole set.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/configd/rules_file.h"
#include "tools/configd/state_file.h"

namespace cv::tools {

/// Sample packets by recording.
using Packets = std::map<std::string, std::vector<unsigned char>>;

inline std::string_view bytes_of(const std::vector<unsigned char>& packet) {
  return {reinterpret_cast<const char*>(packet.data()), packet.size()};
}

struct ThinnedSamples {
  Packets packets;
  /// For the operator, a line each: what kept its points.
  std::vector<std::string> complaints;
};

/// Drops the `drop_common` commonest hashes of the recordings that a rule names, equal ones counted
/// once, from all packets. Which hashes were dropped before is taken from `state`, and what is dropped
/// now is left there. A recording that would lose more than half of its points keeps them all: what
/// remained could not be found.
ThinnedSamples thin_samples(const Packets& packets, const Rules& rules, unsigned drop_common,
                            StateFile& state);

}  // namespace cv::tools
