#include "audio/audio_track_match.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using cv::audio::ReportedShifts;

TEST(ReportedShifts, ContainEverythingWithinEightFramesAroundTheCircle) {
  struct Case {
    std::vector<int32_t> reported;
    std::vector<int32_t> inside;
    std::vector<int32_t> outside;
  };
  const Case cases[] = {
      {{}, {}, {0, -1, INT32_MIN}},
      {{100}, {92, 100, 108}, {91, 109, -100}},
      {{-3}, {-11, 0, 5}, {-12, 6}},
      {{100, 130, -50}, {122, 138, 108, -42}, {109, 121, -41}},
      {{INT32_MAX}, {INT32_MAX - 8, INT32_MIN, INT32_MIN + 7}, {INT32_MAX - 9, INT32_MIN + 8}},
      {{INT32_MIN + 2, -6}, {INT32_MAX - 5, -14, 2}, {INT32_MAX - 6, 3}},
  };
  for (const Case& c : cases) {
    ReportedShifts shifts;
    for (const int32_t shift : c.reported) shifts.insert(shift);
    for (const int32_t shift : c.inside) EXPECT_TRUE(shifts.contains(shift)) << shift;
    for (const int32_t shift : c.outside) EXPECT_FALSE(shifts.contains(shift)) << shift;
  }
}

}  // namespace
