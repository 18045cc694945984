#include "tools/hash_selection.h"

#include <algorithm>
#include <unordered_map>

namespace cv::tools {

namespace {

using Counts = std::unordered_map<uint32_t, uint64_t>;

// Below this the old choice saves too little to be kept.
constexpr double least_share_of_votes = 0.9;

Counts count_hashes(std::span<const Points> samples) {
  Counts counts;
  for (const Points& points : samples) {
    for (const audio::HashPoint& point : points) ++counts[point.hash];
  }
  return counts;
}

/// Calls are taken to have each hash about as often as the samples have it.
double votes_saved(const std::vector<uint32_t>& hashes, const Counts& counts) {
  double votes = 0;
  for (const uint32_t hash : hashes) {
    const auto found = counts.find(hash);
    if (found == counts.end()) continue;
    votes += static_cast<double>(found->second) * static_cast<double>(found->second);
  }
  return votes;
}

std::vector<uint32_t> commonest(const Counts& counts, std::size_t count) {
  std::vector<std::pair<uint32_t, uint64_t>> order(counts.begin(), counts.end());
  const auto end = order.begin() + static_cast<std::ptrdiff_t>(std::min(count, order.size()));
  std::partial_sort(order.begin(), end, order.end(), [](const auto& a, const auto& b) {
    return a.second != b.second ? a.second > b.second : a.first < b.first;
  });
  std::vector<uint32_t> hashes;
  for (auto it = order.begin(); it != end; ++it) hashes.push_back(it->first);
  std::sort(hashes.begin(), hashes.end());
  return hashes;
}

}  // namespace

Points space_out(Points points, uint32_t spacing_frames) {
  if (spacing_frames < 2) return points;
  std::unordered_map<uint32_t, uint32_t> last_kept;
  std::erase_if(points, [&](const audio::HashPoint& point) {
    const auto [last, is_first] = last_kept.try_emplace(point.hash, point.offset);
    if (is_first) return false;
    if (point.offset - last->second < spacing_frames) return true;
    last->second = point.offset;
    return false;
  });
  return points;
}

Points drop_repeated(Points points, std::size_t max_repeat) {
  if (max_repeat == 0) return points;
  const Counts counts = count_hashes({&points, 1});
  std::erase_if(points, [&](const auto& point) { return counts.at(point.hash) > max_repeat; });
  return points;
}

std::vector<uint32_t> choose_common_hashes(std::span<const Points> samples, std::size_t count,
                                           const std::vector<uint32_t>& previous) {
  if (count == 0) return {};
  const Counts counts = count_hashes(samples);
  std::vector<uint32_t> fresh = commonest(counts, count);
  const bool keep =
      previous.size() == fresh.size() &&
      votes_saved(previous, counts) >= least_share_of_votes * votes_saved(fresh, counts);
  return keep ? previous : fresh;
}

Points drop_hashes(Points points, std::span<const uint32_t> hashes) {
  std::erase_if(points, [&](const audio::HashPoint& point) {
    return std::binary_search(hashes.begin(), hashes.end(), point.hash);
  });
  return points;
}

}  // namespace cv::tools
