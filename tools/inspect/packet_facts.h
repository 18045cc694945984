// What a sample packet tells about itself, and about another one. Pure: points in, numbers out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tools/hash_selection.h"
#include "tools/recognition_trial.h"

namespace cv::tools {

struct HashCount {
  uint32_t hash = 0;
  std::size_t frames = 0;

  bool operator==(const HashCount&) const = default;
};

struct PacketFacts {
  std::size_t points = 0;
  /// From frame 0 to the last one with a point.
  std::size_t frames = 0;
  double seconds = 0;
  std::size_t frames_with_points = 0;
  double points_a_frame = 0;  // of those with points
  /// The most points of any frame: it was fingerprinted with that many phases at least.
  std::size_t least_phases = 0;
  /// The fewest frames between two points of one hash; 0 when none repeats.
  std::size_t least_spacing_frames = 0;
  std::size_t distinct_hashes = 0;
  std::vector<HashCount> commonest;  // most frames first, then lower hash
  /// What no recording gives: a frame lower than the one before, a hash that does not name four
  /// different positions.
  std::size_t foreign_points = 0;
  std::size_t first_foreign_point = 0;  // its number, from 0
};

/// `top` is how many of the commonest hashes are wanted.
PacketFacts packet_facts(const Points& points, std::size_t top);

/// The votes for `sample` that a point of `voters` costs on average; 0 without voters.
double votes_a_point(const Points& sample, const Points& voters);

/// The four positions of a hash, strongest first.
std::array<unsigned, 4> hash_positions(uint32_t hash);

struct PacketComparison {
  std::size_t common_hashes = 0;  // distinct
  /// The second as a call against the first as the sample, and the other way round.
  std::optional<PeakMatch> second_in_first;
  std::optional<PeakMatch> first_in_second;
};

PacketComparison compare_packets(const Points& first, const Points& second, unsigned drift_frames);

}  // namespace cv::tools
