#include "tools/inspect/packet_facts.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "audio/audio_spectrum_generator.h"
#include "tools/audio_file.h"

namespace cv::tools {

namespace {

constexpr unsigned position_bits = 6;
constexpr unsigned position_mask = (1u << position_bits) - 1;
constexpr unsigned hash_bits = 4 * position_bits;

bool is_own_hash(uint32_t hash) {
  const auto positions = hash_positions(hash);
  const std::set<unsigned> distinct(positions.begin(), positions.end());
  return hash >> hash_bits == 0 && distinct.size() == positions.size() && !distinct.count(0);
}

std::unordered_map<uint32_t, std::size_t> count_by_hash(const Points& points) {
  std::unordered_map<uint32_t, std::size_t> counts;
  for (const audio::HashPoint& point : points) ++counts[point.hash];
  return counts;
}

void note_frames(const Points& points, PacketFacts& facts) {
  std::map<uint32_t, std::size_t> by_frame;
  for (const audio::HashPoint& point : points) ++by_frame[point.offset];
  if (by_frame.empty()) return;
  facts.frames = std::size_t{by_frame.rbegin()->first} + 1;
  // The last frame's window reaches one hop further.
  facts.seconds =
      static_cast<double>((facts.frames + 1) * audio::frame_hop_samples) / audio_rate_hz;
  facts.frames_with_points = by_frame.size();
  facts.points_a_frame = static_cast<double>(points.size()) / static_cast<double>(by_frame.size());
  for (const auto& [frame, count] : by_frame) {
    facts.least_phases = std::max(facts.least_phases, count);
  }
}

void note_hashes(const Points& points, std::size_t top, PacketFacts& facts) {
  std::unordered_map<uint32_t, std::set<uint32_t>> frames;
  for (const audio::HashPoint& point : points) frames[point.hash].insert(point.offset);
  facts.distinct_hashes = frames.size();
  for (const auto& [hash, at] : frames) {
    facts.commonest.push_back({hash, at.size()});
    for (auto it = at.begin(); std::next(it) != at.end(); ++it) {
      const std::size_t spacing = *std::next(it) - *it;
      if (facts.least_spacing_frames == 0 || spacing < facts.least_spacing_frames) {
        facts.least_spacing_frames = spacing;
      }
    }
  }
  std::sort(facts.commonest.begin(), facts.commonest.end(), [](const auto& a, const auto& b) {
    return a.frames != b.frames ? a.frames > b.frames : a.hash < b.hash;
  });
  facts.commonest.resize(std::min(top, facts.commonest.size()));
}

void note_foreign_points(const Points& points, PacketFacts& facts) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    const bool goes_back = i != 0 && points[i].offset < points[i - 1].offset;
    if (!goes_back && is_own_hash(points[i].hash)) continue;
    if (facts.foreign_points++ == 0) facts.first_foreign_point = i;
  }
}

}  // namespace

std::array<unsigned, 4> hash_positions(uint32_t hash) {
  std::array<unsigned, 4> positions{};
  for (unsigned& position : positions) {
    position = hash & position_mask;
    hash >>= position_bits;
  }
  return positions;
}

PacketFacts packet_facts(const Points& points, std::size_t top) {
  PacketFacts facts;
  facts.points = points.size();
  note_frames(points, facts);
  note_hashes(points, top, facts);
  note_foreign_points(points, facts);
  return facts;
}

double votes_a_point(const Points& sample, const Points& voters) {
  if (voters.empty()) return 0;
  const auto counts = count_by_hash(sample);
  std::size_t votes = 0;
  for (const audio::HashPoint& voter : voters) {
    const auto found = counts.find(voter.hash);
    if (found != counts.end()) votes += found->second;
  }
  return static_cast<double>(votes) / static_cast<double>(voters.size());
}

PacketComparison compare_packets(const Points& first, const Points& second, unsigned drift_frames) {
  PacketComparison comparison;
  const auto first_counts = count_by_hash(first);
  for (const auto& [hash, count] : count_by_hash(second)) {
    comparison.common_hashes += first_counts.count(hash);
  }
  comparison.second_in_first = peak_match(first, as_stream(second), drift_frames);
  comparison.first_in_second = peak_match(second, as_stream(first), drift_frames);
  return comparison;
}

}  // namespace cv::tools
