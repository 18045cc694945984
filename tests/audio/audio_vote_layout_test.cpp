#include "audio/audio_vote_layout.h"

#include <gtest/gtest.h>
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

// A sample without a ring takes a cache line, as the smallest ring does.
TEST(VoteLayout, BoundsTheRingsOfAChunk) {
  for (const uint32_t longest : {0u, 200u, 0xFFFFFFFFu}) {
    const VoteLayout layout(std::vector(1000, VoteLayout::Sample{longest, 3, 0}));
    const uint64_t ring = longest == 200 ? 256 : 64;
    EXPECT_EQ(layout.chunks().size(), (1000 * ring - 1) / VoteLayout::max_chunk_ring_bytes + 1);
    for (uint32_t i = 0; i < 1000; ++i) {
      const VoteShape& shape = layout.shapes()[i];
      const VoteLayout::Chunk& chunk = layout.chunks().at(shape.chunk);
      EXPECT_TRUE(chunk.first_sample <= i && i < chunk.first_sample + chunk.samples);
      EXPECT_LE(shape.ring_position + ring, chunk.size_bytes);
      EXPECT_EQ(shape.track_position % alignof(VoteTrack), 0u);
      EXPECT_EQ(shape.best_position % alignof(BestShift), 0u);
    }
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
