#include "audio/audio_point_log.h"

#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace {

using cv::audio::HashPoint;
using cv::audio::PointLog;
using Points = std::vector<HashPoint>;

PointLog log_of(const Points& points) {
  PointLog log;
  for (const HashPoint& point : points) log.append(point);
  return log;
}

TEST(PointLog, AcceptsFramesThatDoNotGoBack) {
  struct Case {
    Points logged;
    uint32_t frame;
    bool accepted;
  };
  const Case cases[] = {
      {{}, 0xFFFFFFFF, true},
      {{{1, 10}}, 10, true},
      {{{1, 10}}, 9, false},
      {{{1, 10}, {1, 20}}, 15, false},
      {{{1, 10}}, 9 + PointLog::max_frames, true},
      {{{1, 10}}, 10 + PointLog::max_frames, false},
      {{{1, 0xFFFFFFF0}}, 3, true},
      {{{1, 0xFFFFFFF0}, {1, 3}}, 0xFFFFFFFF, false},
      {{{1, 0xFFFFFFF0}, {1, 0x70000000}}, 0x7FFFFFEF, true},
      {{{1, 0xFFFFFFF0}, {1, 0x70000000}}, 0x7FFFFFF0, false},
  };
  for (const Case& c : cases) EXPECT_EQ(log_of(c.logged).accepts(c.frame), c.accepted) << c.frame;
}

TEST(PointLog, FindsTheFirstVoteOfASample) {
  const Points stream = {{5, 100}, {6, 100}, {7, 101}, {5, 140}, {8, 400}};
  const Points around_zero = {{5, 0xFFFFFFFE}, {6, 0xFFFFFFFF}, {7, 1}};
  struct Case {
    Points stream;
    Points sample;
    int32_t delta;
    std::optional<uint32_t> first;
  };
  const Case cases[] = {
      {{}, {{5, 0}}, 100, {}},
      {stream, {}, 100, {}},
      {stream, {{5, 0}, {7, 1}}, 100, 0},
      {stream, {{6, 0}, {5, 40}}, 100, 0},
      {stream, {{9, 0}, {5, 1}, {5, 40}}, 100, 40},
      {stream, {{9, 0}, {8, 300}}, 100, 300},
      {stream, {{8, 301}}, 100, {}},
      {stream, {{5, 200}, {7, 201}, {8, 500}}, -100, 200},
      {stream, {{1, 3}, {7, 201}}, -100, 201},
      {stream, {{8, 300}, {5, 40}, {9, 2}, {7, 1}}, 100, 1},
      {stream, {{5, 0}, {7, 0}, {6, 0}}, 100, 0},
      {around_zero, {{6, 1}, {7, 3}}, -2, 1},
      {around_zero, {{7, 3}}, -2, 3},
      {around_zero, {{7, 0}, {7, 3}}, -1, {}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(log_of(c.stream).first_vote(c.sample, c.delta), c.first) << &c - cases;
  }
}

}  // namespace
