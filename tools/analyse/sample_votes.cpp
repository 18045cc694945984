#include "tools/analyse/sample_votes.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace cv::tools {

namespace {

/// The largest of many numbers in any range of them, while they grow one by one: a binary tree in an
/// array, each node the larger of its two children.
class MaxTree {
 public:
  explicit MaxTree(std::size_t count) : m_leaves(std::bit_ceil(count)), m_nodes(2 * m_leaves) {}

  /// Numbers only grow.
  void raise(std::size_t at, uint32_t value) {
    for (std::size_t node = m_leaves + at; node != 0 && m_nodes[node] < value; node /= 2) {
      m_nodes[node] = value;
    }
  }

  /// The first place of the largest in [begin, end), not empty.
  std::size_t largest(std::size_t begin, std::size_t end) const {
    std::size_t best = m_leaves + begin;
    std::size_t left = m_leaves + begin;
    std::size_t right = m_leaves + end;
    const auto look = [&](std::size_t node) {
      if (m_nodes[node] > m_nodes[best] || (m_nodes[node] == m_nodes[best] && before(node, best))) {
        best = node;
      }
    };
    for (; left < right; left /= 2, right /= 2) {
      if (left % 2 == 1) look(left++);
      if (right % 2 == 1) look(--right);
    }
    while (best < m_leaves) best = m_nodes[2 * best] == m_nodes[best] ? 2 * best : 2 * best + 1;
    return best - m_leaves;
  }
  uint32_t at(std::size_t place) const { return m_nodes[m_leaves + place]; }

 private:
  std::size_t first_leaf(std::size_t node) const {
    while (node < m_leaves) node *= 2;
    return node;
  }
  bool before(std::size_t a, std::size_t b) const { return first_leaf(a) < first_leaf(b); }

  std::size_t m_leaves;
  std::vector<uint32_t> m_nodes;
};

/// Which shifts lead, as votes come.
class ShiftRanking {
 public:
  ShiftRanking(const SampleVotes& sample, std::span<const audio::HashPoint> points)
      : m_lowest(sample.lowest_shift()), m_count(sample.shift_count(points)), m_votes(m_count) {}

  void take(const SampleVotes::Vote& vote) {
    m_votes.raise(static_cast<std::size_t>(vote.voted.shift - m_lowest), vote.voted.votes);
    if (vote.voted.votes > m_best.votes) m_best = vote.voted;
  }

  ScoredShift best(const ScorePoint& now) const { return scored(m_best, now); }

  ScoredShift runner_up(const ScorePoint& now) const {
    constexpr int64_t zone = audio::ReportedShifts::quiet_zone_frames;
    const int64_t at = m_best.shift - m_lowest;
    const auto count = static_cast<int64_t>(m_count);
    ScoredShift second;
    const auto look = [&](int64_t begin, int64_t end) {
      if (begin >= end) return;
      const std::size_t place =
          m_votes.largest(static_cast<std::size_t>(begin), static_cast<std::size_t>(end));
      if (m_votes.at(place) <= second.votes) return;
      second.votes = m_votes.at(place);
      second.shift = static_cast<int32_t>(static_cast<int64_t>(place) + m_lowest);
    };
    look(0, std::max<int64_t>(0, at - zone));
    look(std::min(count, at + zone + 1), count);
    return scored(second, now);
  }

 private:
  static ScoredShift scored(ScoredShift shift, const ScorePoint& now) {
    if (shift.votes == 0) return shift;
    shift.score = audio::SamplesDetector::score(shift.votes, now.total, now.shifts);
    return shift;
  }

  const int64_t m_lowest;
  const std::size_t m_count;
  MaxTree m_votes;  // by shift: those of it and its neighbours when it was last voted for
  ScoredShift m_best;
};

}  // namespace

SampleVotes::SampleVotes(const audio::HashSample& sample, uint8_t drift_frames)
    : m_metadata(sample.metadata),
      m_index(new audio::HashDatabase(std::vector<audio::HashSample>{sample})),
      m_drift(drift_frames) {
  for (const audio::HashPoint& point : sample.payload->points) {
    m_longest_offset = std::max(m_longest_offset, point.offset);
  }
}

std::size_t SampleVotes::shift_count(std::span<const audio::HashPoint> points) const {
  return static_cast<std::size_t>(points.back().offset + m_drift - lowest_shift()) + 1;
}

double SampleVotes::nearest(std::span<const audio::HashPoint> points) const {
  double highest = -std::numeric_limits<double>::infinity();
  count(points, [&](const Vote& vote) { highest = std::max(highest, vote.voted.score); });
  return highest - m_metadata->threshold;
}

SampleTrack SampleVotes::track(std::span<const audio::HashPoint> points) const {
  SampleTrack track;
  track.sample_id = m_metadata->id;
  track.sample_name = m_metadata->name;
  track.threshold = m_metadata->threshold;
  track.nearest = -std::numeric_limits<double>::infinity();
  if (points.empty()) return track;
  ShiftRanking ranking(*this, points);
  const auto close = [&] {
    if (track.points.empty()) return;
    ScorePoint& last = track.points.back();
    last.best = ranking.best(last);
    last.runner_up = ranking.runner_up(last);
  };
  count(points, [&](const Vote& vote) {
    if (track.points.empty() || track.points.back().frame != vote.point.offset) {
      close();
      track.points.push_back({vote.point.offset, 0, 0, vote.voted, {}, {}});
    }
    ScorePoint& now = track.points.back();
    now.total = vote.total;
    now.shifts = vote.shifts;
    if (vote.voted.score > now.voted.score) now.voted = vote.voted;
    track.nearest = std::max(track.nearest, vote.voted.score - track.threshold);
    ranking.take(vote);
  });
  close();
  return track;
}

}  // namespace cv::tools
