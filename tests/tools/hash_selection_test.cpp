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

std::vector<uint32_t> hashes(const std::string& text) { return {text.begin(), text.end()}; }

TEST(HashSelection, TheCommonestOfTheSetGoAndStayGoneWhileTheyAreNearlyThat) {
  const std::string ten(10, 'x');
  const struct {
    std::vector<std::string> samples;
    std::size_t count;
    std::string previous, expected;
  } table[] = {
      {{"abc", "bcd", "cde"}, 2, "", "bc"},  // b and d are equally common
      {{"abc"}, 0, "a", ""},
      {{ten + "x", ten, "yyyyyyyyyyyyyyyyyyyy"}, 1, "y", "y"},   // 20 of 21: 0.907 of the votes
      {{ten + "xx", ten, "yyyyyyyyyyyyyyyyyyyy"}, 1, "y", "x"},  // 20 of 22: 0.826
      {{ten, "yyyyyyyyyy", "z"}, 1, "xy", "x"},                  // another number was asked for
      {{"xxyz"}, 1, "q", "x"},                                   // gone from the set
  };
  for (const auto& row : table) {
    std::vector<Points> samples;
    for (const auto& text : row.samples) samples.push_back(points(text));
    EXPECT_EQ(choose_common_hashes(samples, row.count, hashes(row.previous)), hashes(row.expected))
        << testing::PrintToString(row.samples) << " " << row.count << " " << row.previous;
  }
  EXPECT_EQ(drop_hashes(points("abcab"), hashes("ac")), points(" b  b"));
}

}  // namespace
}  // namespace cv::tools
