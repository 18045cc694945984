#include "audio/audio_vote_layout.h"

#include <gtest/gtest.h>
#include <vector>

namespace cv::audio {
namespace {

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

}  // namespace
}  // namespace cv::audio
