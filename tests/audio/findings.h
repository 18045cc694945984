// Matches as values to compare, bit for bit.
#pragma once

#include <bit>
#include <cstdint>
#include <tuple>
#include <vector>

#include "audio/audio_samples_detector.h"

namespace cv::test {

/// Identifier, score bits, offset, start, end.
using Finding = std::tuple<uint32_t, uint64_t, int32_t, uint32_t, uint32_t>;

inline std::vector<Finding> findings(const std::vector<audio::Match>& matches) {
  std::vector<Finding> result;
  for (const audio::Match& match : matches) {
    result.emplace_back(match.sample->id, std::bit_cast<uint64_t>(match.score), match.offset,
                        match.start, match.end);
  }
  return result;
}

}  // namespace cv::test
