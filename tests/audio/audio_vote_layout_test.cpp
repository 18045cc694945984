#include "audio/audio_vote_layout.h"

#include <algorithm>
#include <bit>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "audio/audio_samples_detector.h"

namespace {

using cv::audio::SamplesDetector;
using cv::audio::VoteLayout;
using cv::audio::VoteShape;

TEST(VoteLayout, BoundsTheRingOfASampleByItsPoints) {
  struct Case {
    uint32_t longest_offset;
    uint64_t points;
    uint32_t ring;
  };
  const Case cases[] = {{0, 1, 64},        {79, 80, 128},         {80, 81, 256},
                        {200, 1, 256},     {1000, 300, 2048},     {1000, 5, 0},
                        {100000, 300, 0},  {0xFFFFFFFF, 1000, 0}, {0x7FFFFFFF, 1u << 30, 0},
                        {3800, 3750, 4096}};
  for (const Case& c : cases) {
    const VoteLayout layout(std::vector{VoteLayout::Sample{c.longest_offset, c.points, 3}});
    const VoteShape& shape = layout.shapes()[0];
    EXPECT_EQ(shape.has_ring() ? shape.ring_mask + 1 : 0, c.ring) << c.longest_offset;
  }
}

TEST(VoteLayout, GivesEverySampleMemoryOfItsOwn) {
  std::mt19937 random(3);
  std::vector<VoteLayout::Sample> samples;
  for (int i = 0; i < 700; ++i) {
    const auto longest = static_cast<uint32_t>(random() % (i % 50 == 0 ? 60000 : 300));
    samples.push_back({longest, random() % (longest + 1), 3});
  }
  const VoteLayout layout(samples);
  std::vector<std::vector<bool>> used;
  for (const VoteLayout::Chunk& chunk : layout.chunks()) used.emplace_back(chunk.size_bytes);
  const auto take = [&](const VoteShape& shape, uint32_t position, std::size_t bytes) {
    ASSERT_LE(position + bytes, used[shape.chunk].size());
    for (std::size_t i = position; i < position + bytes; ++i) {
      ASSERT_FALSE(used[shape.chunk][i]);
      used[shape.chunk][i] = true;
    }
  };
  for (uint32_t i = 0; i < samples.size(); ++i) {
    const VoteShape& shape = layout.shapes()[i];
    const VoteLayout::Chunk& chunk = layout.chunks()[shape.chunk];
    EXPECT_TRUE(chunk.first_sample <= i && i < chunk.first_sample + chunk.samples);
    EXPECT_TRUE(std::has_single_bit(shape.ring_mask + 1));
    EXPECT_EQ(shape.track_position % alignof(cv::audio::VoteTrack), 0u);
    EXPECT_EQ(shape.best_position % alignof(cv::audio::BestShift), 0u);
    take(shape, shape.track_position, sizeof(cv::audio::VoteTrack));
    take(shape, shape.best_position, sizeof(cv::audio::BestShift));
    take(shape, shape.ring_position, shape.ring_mask + 1);
  }
}

/// What is not looked at closely must be certain not to reach the threshold.
TEST(VoteLayout, NeverRulesOutVotesThatReachTheThreshold) {
  const double thresholds[] = {-1, 0, 1e-12, 0.5, 1, 2, 3, 3.7, 6, 10, 20, 33, 60};
  std::vector<VoteLayout::Sample> samples;
  for (const double threshold : thresholds) samples.push_back({100, 100, threshold});
  const VoteLayout layout(samples);
  std::mt19937_64 random(4);
  std::size_t reaching = 0;
  for (int round = 0; round < 200000; ++round) {
    const uint32_t position = static_cast<uint32_t>(round % std::size(thresholds));
    const auto up_to = [&](uint64_t limit) { return 1 + random() % limit; };
    // Every shift has a vote at least; 17 shifts at most are neighbours. One shift has all votes.
    const uint64_t shifts = up_to(up_to(up_to(1u << 20)));
    const uint64_t votes = up_to(up_to(1u << round % 24));
    const uint64_t least_others = shifts - std::min({shifts, votes, uint64_t{17}});
    const uint64_t others = shifts == 1 ? 0 : least_others + random() % up_to(4 * shifts);
    const uint64_t total = votes + others;
    if (!(SamplesDetector::score(votes, total, shifts) >= thresholds[position])) continue;
    ++reaching;
    EXPECT_TRUE(layout.may_reach(position, votes, total, shifts));
    EXPECT_GE(votes, layout.shapes()[position].least_votes(total - 1));
    EXPECT_GE(votes, layout.shapes()[position].least_votes(total - up_to(total)));
    EXPECT_GE(votes, layout.least_votes(position, total - 1, shifts - 1, 1));
    EXPECT_GE(votes, layout.least_votes(position, total - 1, shifts - 1, 50));
  }
  EXPECT_GT(reaching, 20000u);
}

TEST(VoteLayout, RulesOutWhatIsFarFromTheThreshold) {
  const VoteLayout layout(std::vector{VoteLayout::Sample{100, 100, 3.0}});
  EXPECT_FALSE(layout.may_reach(0, 8, 1000, 900));
  EXPECT_EQ(layout.shapes()[0].least_votes(1000), 8u);
  // Eleven votes a shift on the average: many more are needed.
  EXPECT_GT(layout.least_votes(0, 10000, 900, 100), 70u);
}

}  // namespace
