#include "audio/audio_samples_detector.h"

#include <bit>
#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <vector>

#include "audio/findings.h"
#include "audio/hash_samples.h"
#include "support/plain_samples_detector.h"

namespace {

using cv::audio::HashDatabase;
using cv::audio::HashPoint;
using cv::audio::HashSample;
using cv::audio::Match;
using cv::audio::SamplesDetector;
using cv::test::Finding;
using cv::test::findings;
using cv::test::make_sample;
using cv::test::MatchCollector;

SamplesDetector detector_of(const std::vector<HashSample>& samples, uint8_t drift = 1) {
  SamplesDetector detector;
  detector.set_database(cv::rc_ptr<HashDatabase>(new HashDatabase(samples)));
  detector.set_drift(drift);
  return detector;
}

/// A sample whose frame f has hash f, so that one point gives exactly one vote at a chosen shift.
class Votes {
 public:
  explicit Votes(double threshold, uint8_t drift = 1) : m_threshold(threshold) {
    std::vector<HashPoint> points;
    for (uint32_t frame = 0; frame < 200; ++frame) points.push_back({frame, frame});
    m_detector = detector_of({make_sample(1, points, threshold)}, drift);
  }

  void vote(int32_t shift, int times = 1, uint32_t frame = 50) {
    const HashPoint point{frame, static_cast<uint32_t>(shift) + frame};
    for (int i = 0; i < times; ++i) m_detector.handle_hash(point, m_found, nullptr);
  }
  /// The shifts announced since the last call.
  std::vector<int32_t> announced() {
    std::vector<int32_t> shifts;
    for (const Match& match : m_found.matches) shifts.push_back(match.offset);
    m_found.matches.clear();
    return shifts;
  }
  std::vector<Match> matches() const {
    std::vector<Match> matches;
    m_detector.get_match(matches);
    return matches;
  }
  MatchCollector& found() { return m_found; }
  SamplesDetector& detector() { return m_detector; }

 private:
  double m_threshold;
  SamplesDetector m_detector;
  MatchCollector m_found;
};

using Shifts = std::vector<int32_t>;

TEST(SamplesDetector, ScoresByDoublingsAboveTheOtherShifts) {
  struct Case {
    uint64_t votes, total, shifts;
    double score;
  };
  const Case cases[] = {{1, 1, 1, 0},   {8, 8, 1, 3},
                        {8, 8, 2, 3},   {20, 22, 2, std::log2(10.0)},
                        {1, 2, 2, 0},   {1, 3, 3, 0},
                        {2, 3, 2, 1},   {3, 27, 257, 5},
                        {2, 100, 3, 0}, {5, 15, 1, std::log2(5.0)}};
  for (const Case& c : cases) {
    EXPECT_DOUBLE_EQ(SamplesDetector::score(c.votes, c.total, c.shifts), c.score)
        << c.votes << " of " << c.total << " over " << c.shifts;
  }
}

TEST(SamplesDetector, AnnouncesTheEighthVoteOfALoneShiftOnce) {
  Votes votes(3.0);
  votes.vote(100, 7);
  EXPECT_EQ(votes.announced(), Shifts{});
  votes.vote(100, 1, 60);
  ASSERT_EQ(votes.found().matches.size(), 1u);
  EXPECT_EQ(findings(votes.found().matches),
            (std::vector<Finding>{{1, std::bit_cast<uint64_t>(3.0), 100, 50, 61}}));
  votes.announced();
  votes.vote(100, 20);
  EXPECT_EQ(votes.announced(), Shifts{});
}

TEST(SamplesDetector, CountsNeighboursWithinTheDrift) {
  struct Case {
    uint8_t drift;
    Shifts shifts;  // one vote each, in turn
    Shifts announced;
  };
  const Case cases[] = {
      {1, {100, 101, 100, 101, 100, 101, 100, 101}, {101}},
      {0, {100, 101, 100, 101, 100, 101, 100, 101}, {}},
      {1, {99, 101, 99, 101, 99, 101, 99, 100}, {100}},
      {1, {98, 98, 98, 98, 100, 100, 100, 100}, {}},
      {2, {98, 98, 98, 98, 100, 100, 100, 100}, {100}},
      {3, {97, 97, 97, 97, 103, 103, 103, 100}, {100}},
      {0, {100, 100, 100, 100, 100, 100, 100, 100}, {100}},
      {255, {-155, -155, -155, 355, 355, 355, 355, 100}, {100}},
  };
  for (const Case& c : cases) {
    Votes votes(3.0, c.drift);
    for (const int32_t shift : c.shifts) votes.vote(shift);
    EXPECT_EQ(votes.announced(), c.announced) << int{c.drift} << " at " << c.shifts[0];
  }
}

TEST(SamplesDetector, KeepsSilentWithinEightFramesOfAnAnnouncement) {
  Votes votes(0.0);
  votes.vote(100);
  EXPECT_EQ(votes.announced(), Shifts{100});
  for (int32_t shift = 92; shift <= 108; ++shift) votes.vote(shift);
  EXPECT_EQ(votes.announced(), Shifts{});
  votes.vote(109);
  votes.vote(91);
  EXPECT_EQ(votes.announced(), (Shifts{109, 91}));
  votes.vote(117);
  votes.vote(118);
  EXPECT_EQ(votes.announced(), Shifts{118});
}

TEST(SamplesDetector, CountsSilencedVotesAllTheSame) {
  Votes votes(3.0);
  votes.vote(100, 8);
  votes.vote(105, 30);
  EXPECT_EQ(votes.announced(), Shifts{100});
  // 30 of 38 votes over 2 shifts: below the threshold, so nothing is listed although it was announced.
  EXPECT_TRUE(votes.matches().empty());
  for (int32_t shift = 300; shift < 320; shift += 4) votes.vote(shift);
  ASSERT_EQ(votes.matches().size(), 1u);
  EXPECT_EQ(votes.matches()[0].offset, 105);
  EXPECT_DOUBLE_EQ(votes.matches()[0].score, std::log2(30.0 / 13 * 6));
}

TEST(SamplesDetector, ListsTheBestShiftOfACall) {
  Votes votes(3.0);
  votes.vote(100, 20);
  votes.vote(500, 2);
  ASSERT_EQ(votes.matches().size(), 1u);
  EXPECT_DOUBLE_EQ(votes.matches()[0].score, std::log2(10.0));

  Votes tie(0.0);
  tie.vote(100, 3);
  tie.vote(500, 3);
  EXPECT_EQ(tie.matches().at(0).offset, 100) << "on a tie the earlier shift stays";
  tie.vote(500);
  EXPECT_EQ(tie.matches().at(0).offset, 500);
}

TEST(SamplesDetector, TellsTheSpanOfTheSampleThatVoted) {
  Votes votes(2.0);
  for (const uint32_t frame : {70u, 0u, 199u, 20u}) votes.vote(-30, 1, frame);
  EXPECT_EQ(findings(votes.found().matches),
            (std::vector<Finding>{{1, std::bit_cast<uint64_t>(2.0), -30, 0, 200}}));
  votes.vote(-30, 1, 10);
  EXPECT_EQ(votes.matches().at(0).start, 0u);
  EXPECT_EQ(votes.matches().at(0).end, 200u);
}

TEST(SamplesDetector, TakesAnyFramesForShiftsModulo32Bits) {
  const uint32_t far = 0xFFFFFFFF;
  SamplesDetector detector =
      detector_of({make_sample(1, {{7, far}, {8, 0}, {9, 0x80000000}}, 1.0)}, 3);
  MatchCollector found;
  const auto point = [&](uint32_t hash, uint32_t offset) {
    detector.handle_hash({hash, offset}, found, nullptr);
  };
  point(9, 0);           // shift -2^31
  point(8, 0x7FFFFFFF);  // shift 2^31 - 1, its neighbour around the circle
  point(7, 3);           // shift 4
  point(8, 3);           // shift 3
  ASSERT_EQ(found.matches.size(), 2u);
  EXPECT_EQ(found.matches[0].offset, INT32_MAX);
  EXPECT_EQ(found.matches[1].offset, 3);
  std::vector<Match> matches;
  detector.get_match(matches);
  // 2 of 4 votes over 4 shifts: log2(3).
  ASSERT_EQ(matches.size(), 1u);
  EXPECT_EQ(matches[0].offset, INT32_MAX);
  point(7, 4);
  point(7, 4);
  detector.get_match(matches);
  EXPECT_EQ(matches[0].end, 0u) << "one behind the highest frame wraps";
}

TEST(SamplesDetector, AnnouncesInTheOrderOfTheIndex) {
  SamplesDetector detector =
      detector_of({make_sample(9, {{7, 40}, {7, 0}}, 0.0), make_sample(2, {{7, 3}}, 0.0),
                   make_sample(5, {{7, 3}}, 0.5)});
  MatchCollector found;
  detector.handle_hash({8, 100}, found, nullptr);
  EXPECT_TRUE(found.matches.empty()) << "an unknown hash";
  detector.handle_hash({7, 100}, found, nullptr);
  EXPECT_EQ(findings(found.matches),
            (std::vector<Finding>{{9, 0, 60, 40, 41}, {9, 0, 100, 0, 1}, {2, 0, 97, 3, 4}}));
}

TEST(SamplesDetector, SortsTheWholeListByScoreAndKeepsTheOrderOfEqualOnes) {
  Votes votes(3.0);
  votes.vote(100, 8);
  const auto a = cv::test::make_metadata(11);
  const auto b = cv::test::make_metadata(12);
  const auto c = cv::test::make_metadata(13);
  std::vector<Match> matches = {{a, 3.0, 0, 0, 0}, {b, 5.0, 0, 0, 0}, {c, 2.0, 0, 0, 0}};
  votes.detector().get_match(matches);
  std::vector<uint32_t> order;
  for (const Match& match : matches) order.push_back(match.sample->id);
  EXPECT_EQ(order, (std::vector<uint32_t>{12, 11, 1, 13}));
}

TEST(SamplesDetector, StartsAnewAfterAReset) {
  Votes votes(3.0, 0);
  const auto database = votes.detector().database();
  votes.vote(100, 8);
  EXPECT_EQ(votes.announced(), Shifts{100});
  votes.detector().reset();
  EXPECT_FALSE(votes.detector().database());
  EXPECT_TRUE(votes.matches().empty());
  votes.detector().set_database(database);
  for (const int32_t shift : {100, 101, 100, 101, 100, 101, 100}) votes.vote(shift);
  EXPECT_EQ(votes.announced(), Shifts{});
  votes.vote(101);
  EXPECT_EQ(votes.announced(), Shifts{101}) << "the drift is one again";

  votes.detector().set_database(cv::rc_ptr<HashDatabase>(new HashDatabase()));
  EXPECT_TRUE(votes.matches().empty()) << "a sample that the database lacks is not listed";
}

}  // namespace
