#include "tools/hash_selection.h"

#include <gtest/gtest.h>

namespace cv::tools {
namespace {

/// A character is a hash, its place the frame; blanks are frames without a point, and what stands in
/// brackets shares a frame.
Points points(const std::string& text) {
  Points out;
  uint32_t frame = 0;
  bool within = false;
  for (const char c : text) {
    if (c == '[' || c == ']') {
      within = c == '[';
    } else if (c != ' ') {
      out.push_back({static_cast<uint32_t>(c), frame});
    }
    if (!within) ++frame;
  }
  return out;
}

TEST(HashSelection, SpacesAndDropsByTable) {
  const struct {
    const char* text;
    const char* expected;
    uint32_t spacing_frames;
    std::size_t max_repeat;
  } table[] = {
      {"aaaabaaab", "a a ba ab", 2, 0},
      {"aaaabaaab", "a  ab a b", 3, 0},
      {"[ab][bc][ab]", "[ab][c][ab]", 2, 0},
      {"aaabbc", "   bbc", 1, 2},
      {"aaaabbb b", "a a", 2, 2},  // counted is what spacing left
      {"", "", 2, 2},
  };
  for (const auto& row : table) {
    EXPECT_EQ(drop_repeated(space_out(points(row.text), row.spacing_frames), row.max_repeat),
              points(row.expected))
        << row.text << " spacing " << row.spacing_frames << " repeat " << row.max_repeat;
  }
}

}  // namespace
}  // namespace cv::tools
