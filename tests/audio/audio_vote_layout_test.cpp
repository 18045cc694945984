#include "audio/audio_vote_layout.h"

#include <bit>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "audio/audio_samples_detector.h"

namespace cv::audio {
namespace {

TEST(VoteLayout, BoundsTheRingOfASampleByItsPoints) {
  struct Case {
    uint32_t longest_offset;
    uint64_t points;
    uint32_t ring;
  };
  const Case cases[] = {{0, 1, 64},   {79, 80, 128},      {80, 81, 256},        {200, 1, 256},
                        {1000, 5, 0}, {3800, 3750, 4096}, {0xFFFFFFFF, 1000, 0}};
  for (const Case& c : cases) {
    const VoteLayout layout(std::vector{VoteLayout::Sample{c.longest_offset, c.points, 3}});
    const VoteShape& shape = layout.shapes()[0];
    EXPECT_EQ(shape.has_ring() ? shape.ring_mask + 1 : 0, c.ring) << c.longest_offset;
  }
}

TEST(VoteLayout, GivesEverySampleMemoryOfItsOwn) {
  std::mt19937 random(3);
  std::vector<VoteLayout::Sample> samples(500, {0xFFFFFFFF, 3, 0});  // these have no rings
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
    const std::size_t tracks = chunk.samples * (sizeof(VoteTrack) + sizeof(BestShift));
    EXPECT_TRUE(chunk.samples == 1 ||
                chunk.size_bytes <= tracks + 64 + VoteLayout::max_chunk_ring_bytes);
    EXPECT_TRUE(std::has_single_bit(shape.ring_mask + 1));
    EXPECT_EQ(shape.track_position % alignof(VoteTrack), 0u);
    EXPECT_EQ(shape.best_position % alignof(BestShift), 0u);
    take(shape, shape.track_position, sizeof(VoteTrack));
    take(shape, shape.best_position, sizeof(BestShift));
    take(shape, shape.ring_position, shape.ring_mask + 1);
  }
}

TEST(VoteLayout, RulesOutWhatIsFarFromTheThresholdAndNothingElse) {
  const VoteLayout layout(std::vector{VoteLayout::Sample{100, 100, 3.0}});
  EXPECT_FALSE(layout.may_reach(0, 8, 1000, 900));
  EXPECT_EQ(layout.shapes()[0].least_votes(1000), 8u);
  // Eleven votes a shift on the average: many more are needed.
  EXPECT_GT(layout.least_votes(0, 10000, 900, 100), 70u);
  // Each vote of a run may be one for a shift of its own.
  EXPECT_GE(SamplesDetector::score(23, 149, 50), 3);
  EXPECT_LE(layout.least_votes(0, 100, 1, 50), 23u);
}

}  // namespace
}  // namespace cv::audio
