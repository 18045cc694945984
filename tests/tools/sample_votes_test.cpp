#include "tools/analyse/sample_votes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <tuple>

#include "audio/audio_fingerprint.h"
#include "support/recordings.h"

namespace cv::tools {
namespace {

/// Frame that decides, sample, shift, score.
using Found = std::tuple<uint64_t, uint32_t, int32_t, double>;

/// What the detector itself makes of a stream.
class Detector : public audio::SamplesDetectorCallback {
 public:
  Detector(const rc_ptr<audio::HashDatabase>& database, uint8_t drift_frames) {
    m_detector.set_database(database);
    m_detector.set_drift(drift_frames);
  }
  void run(const std::vector<audio::HashPoint>& points) {
    for (const audio::HashPoint& point : points) {
      m_frame = point.offset;
      m_detector.handle_hash(point, *this, nullptr);
    }
  }
  void on_sample_detected(audio::Match match, void*) override {
    found.insert({m_frame, match.sample->id, match.offset, match.score});
  }
  std::map<uint32_t, std::pair<int32_t, double>> best() const {
    std::vector<audio::Match> matches;
    m_detector.get_match(matches);
    std::map<uint32_t, std::pair<int32_t, double>> best;
    for (const audio::Match& match : matches) best[match.sample->id] = {match.offset, match.score};
    return best;
  }

  std::set<Found> found;

 private:
  audio::SamplesDetector m_detector;
  uint64_t m_frame = 0;
};

struct SampleVotesTest : testing::Test {
  SampleVotesTest() {
    const auto prompts = test::english_prompts(2 * 8000);
    for (uint32_t i = 0; i < 60; ++i) {
      audio::HashSample sample;
      sample.metadata = new audio::SampleMetadata;
      sample.metadata->id = 1000 + i;
      sample.metadata->threshold = 3;  // low: findings of all kinds
      sample.payload = new audio::HashSamplePayload;
      sample.payload->points = audio::fingerprint(prompts.at(i).samples, 4);
      samples.push_back(sample);
    }
    // Whole and in part, off the hop, twice, and speech that is none of them.
    std::vector<int16_t> audio(1000, 0);
    const auto append = [&](const std::vector<int16_t>& part, std::size_t from) {
      audio.insert(audio.end(), part.begin() + static_cast<std::ptrdiff_t>(from), part.end());
    };
    for (const std::size_t i : {3u, 17u, 3u, 40u, 59u}) {
      append(prompts[i].samples, i == 40 ? 9001 : 0);
      append(test::french_prompts(2 * 8000)[i].samples, 77);
    }
    points = audio::fingerprint(audio);
    database = new audio::HashDatabase(samples);
  }

  std::vector<audio::HashSample> samples;
  std::vector<audio::HashPoint> points;
  rc_ptr<audio::HashDatabase> database;
};

TEST_F(SampleVotesTest, WhatReachesTheThresholdIsWhatTheDetectorAnnouncesBitByBit) {
  for (const uint8_t drift : {uint8_t{0}, uint8_t{1}, uint8_t{3}}) {
    SCOPED_TRACE(int{drift});
    Detector detector(database, drift);
    detector.run(points);
    EXPECT_GE(detector.found.size(), 5u);
    std::set<Found> found;
    for (const audio::HashSample& sample : samples) {
      const SampleVotes votes(sample, drift);
      audio::ReportedShifts reported;
      votes.count(points, [&](const SampleVotes::Vote& vote) {
        if (vote.voted.score < sample.metadata->threshold) return;
        if (reported.contains(vote.voted.shift)) return;
        reported.insert(vote.voted.shift);
        found.insert({vote.point.offset, sample.metadata->id, vote.voted.shift, vote.voted.score});
      });
      EXPECT_EQ(votes.track(points).nearest, votes.nearest(points));
    }
    EXPECT_EQ(found, detector.found);
    for (const auto& [id, best] : detector.best()) {
      const SampleTrack track = SampleVotes(samples[id - 1000], drift).track(points);
      EXPECT_EQ(std::pair(track.points.back().best.shift, track.points.back().best.score), best);
    }
  }
}

TEST_F(SampleVotesTest, ATrackHoldsThePointsBestAndTheRunnerUp) {
  for (const std::size_t i : {3u, 5u}) {  // one that is there, one that is not
    const SampleVotes votes(samples[i], 1);
    // By the book: every shift's votes when it was last voted for.
    std::map<int32_t, uint32_t> seen;
    std::vector<ScorePoint> expected;
    ScoredShift best;
    votes.count(points, [&](const SampleVotes::Vote& vote) {
      seen[vote.voted.shift] = vote.voted.votes;
      if (vote.voted.votes > best.votes) best = vote.voted;
      if (expected.empty() || expected.back().frame != vote.point.offset) {
        expected.push_back({vote.point.offset, 0, 0, vote.voted, {}, {}});
      }
      ScorePoint& point = expected.back();
      point.total = vote.total;
      point.shifts = vote.shifts;
      if (vote.voted.score > point.voted.score) point.voted = vote.voted;
      point.best = best;
      point.runner_up = {};
      for (const auto& [shift, count] : seen) {
        if (std::abs(shift - best.shift) > 8 && count > point.runner_up.votes) {
          point.runner_up = {shift, count, 0};
        }
      }
    });
    const SampleTrack track = votes.track(points);
    ASSERT_EQ(track.points.size(), expected.size());
    ASSERT_GT(expected.size(), 100u);
    for (std::size_t k = 0; k < expected.size(); ++k) {
      const ScorePoint& is = track.points[k];
      const ScorePoint& want = expected[k];
      const auto shift_of = [](const ScoredShift& s) { return std::pair(s.shift, s.votes); };
      ASSERT_EQ(std::tuple(is.frame, is.total, is.shifts, shift_of(is.voted), shift_of(is.best),
                           shift_of(is.runner_up)),
                std::tuple(want.frame, want.total, want.shifts, shift_of(want.voted),
                           shift_of(want.best), shift_of(want.runner_up)))
          << k;
      ASSERT_EQ(is.voted.score, want.voted.score);
      ASSERT_EQ(is.runner_up.score,
                is.runner_up.votes == 0
                    ? 0
                    : audio::SamplesDetector::score(is.runner_up.votes, is.total, is.shifts));
    }
  }
}

}  // namespace
}  // namespace cv::tools
