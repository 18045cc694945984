#include "audio/audio_samples_detector.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

#include "audio/points.h"
#include "support/plain_samples_detector.h"

namespace cv::audio {
namespace {

using Shifts = std::vector<int32_t>;

/// A sample whose frame f has hash f, so that one point gives exactly one vote at a chosen shift.
struct Votes {
  Votes(double threshold, uint8_t drift) {
    test::Points points;
    for (uint32_t frame = 0; frame < 200; ++frame) points.push_back({frame, frame});
    detector = test::detector_of({test::make_sample(1, points, threshold)}, drift);
  }
  void vote(int32_t shift, int times = 1) {
    const HashPoint point{50, static_cast<uint32_t>(shift) + 50};
    for (int i = 0; i < times; ++i) detector.handle_hash(point, found, nullptr);
  }
  Shifts announced() const {
    Shifts shifts;
    for (const Match& match : found.matches) shifts.push_back(match.offset);
    return shifts;
  }
  std::vector<Match> listed() const {
    std::vector<Match> matches;
    detector.get_match(matches);
    return matches;
  }

  SamplesDetector detector;
  test::MatchCollector found;
};

// What the plain model has to say, too.
TEST(SamplesDetector, AnnouncesAndListsShiftsThatStandOut) {
  struct Case {
    double threshold;
    uint8_t drift;
    std::vector<std::pair<int32_t, int>> votes;  // shift, how many
    Shifts announced;
    int32_t listed;  // 0: nothing
    double score;
  };
  const Case cases[] = {
      // A lone shift has the doublings of one vote; it is announced once.
      {3, 1, {{100, 7}}, {}, 0, 0},
      {3, 1, {{100, 28}}, {100}, 100, std::log2(28)},
      // Neighbours within the drift count.
      {3, 0, {{100, 4}, {101, 4}}, {}, 0, 0},
      {3, 1, {{100, 4}, {101, 4}}, {101}, 101, 3},
      // Nothing within eight frames of an announcement.
      {0, 1, {{100, 1}, {92, 1}, {108, 1}, {109, 1}}, {100, 109}, 109, std::log2(3)},
      // Votes at other shifts count against one.
      {3, 1, {{100, 8}, {105, 30}}, {100}, 0, 0},
      // On a tie the earlier shift stays.
      {0, 1, {{100, 3}, {500, 3}}, {100, 500}, 100, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    Votes votes(c.threshold, c.drift);
    for (const auto& [shift, times] : c.votes) votes.vote(shift, times);
    EXPECT_EQ(votes.announced(), c.announced);
    const auto listed = votes.listed();
    ASSERT_EQ(listed.size(), c.listed == 0 ? 0u : 1u);
    EXPECT_EQ(listed.empty() ? 0 : listed[0].offset, c.listed);
    EXPECT_DOUBLE_EQ(listed.empty() ? 0 : listed[0].score, c.score);
  }
}

TEST(SamplesDetector, StartsAnewAfterAReset) {
  Votes votes(3.0, 1);
  const auto database = votes.detector.database();
  votes.vote(100, 7);
  votes.detector.reset();
  votes.detector.set_database(database);
  votes.vote(100, 7);
  EXPECT_EQ(votes.announced(), (Shifts{}));
  votes.vote(100);
  EXPECT_EQ(votes.announced(), (Shifts{100}));
}

}  // namespace
}  // namespace cv::audio
