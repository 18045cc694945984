// What the tools work out in ways of their own is, bit by bit, what a node's detector makes of it.

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <tuple>

#include "audio/audio_fingerprint.h"
#include "support/recordings.h"
#include "tools/analyse/sample_votes.h"
#include "tools/evaluate/threshold_sweep.h"
#include "tools/recognition_trial.h"

namespace cv::tools {
namespace {

/// Frame that decides, sample, shift, score.
using Found = std::tuple<uint64_t, uint32_t, int32_t, double>;

/// What a node's detector announces in a whole stream, and what it lists in the end.
struct Node : audio::SamplesDetectorCallback {
  Node(const Points& stream, const rc_ptr<audio::HashDatabase>& database, uint8_t drift_frames) {
    audio::SamplesDetector detector;
    detector.set_database(database);
    detector.set_drift(drift_frames);
    for (const audio::HashPoint& point : stream) {
      frame = point.offset;
      detector.handle_hash(point, *this, nullptr);
    }
    detector.get_match(best);
  }
  void on_sample_detected(audio::Match match, void*) override {
    found.emplace_back(frame, match.sample->id, match.offset, match.score);
  }

  uint64_t frame = 0;
  std::vector<Found> found;
  std::vector<audio::Match> best;
};

class NodeDetector : public testing::Test {
 protected:
  NodeDetector() {
    const auto prompts = test::english_prompts(2 * 8000), speech = test::french_prompts(2 * 8000);
    for (std::size_t i = 0; i < 20; ++i) {
      m_samples.push_back(audio::fingerprint(prompts.at(i).samples, 4));
    }
    // Hours of nothing before the last point: such a sample's votes are counted apart.
    m_samples.push_back(m_samples[3]);
    m_samples.back().back().offset += 1000000;
    // Whole and in part, off the hop, twice, and speech that is none of them.
    std::vector<int16_t> audio(1077);
    for (const auto& [i, from] : {std::pair(3, 0), {17, 0}, {3, 0}, {10, 9001}, {19, 0}}) {
      const auto place = static_cast<std::size_t>(i);
      const auto& prompt = prompts[place].samples;
      audio.insert(audio.end(), prompt.begin() + from, prompt.end());
      audio.insert(audio.end(), speech[place].samples.begin(), speech[place].samples.end());
    }
    m_stream = audio::fingerprint(audio);
  }

  std::vector<audio::HashSample> samples(double threshold) const {
    std::vector<audio::HashSample> samples;
    for (const Points& points : m_samples) {
      const auto id = static_cast<uint32_t>(samples.size());
      samples.push_back(make_hash_sample(id, "", threshold, points));
    }
    return samples;
  }
  rc_ptr<audio::HashDatabase> database(double threshold) const {
    return new audio::HashDatabase(samples(threshold));
  }

  std::vector<Points> m_samples;
  Points m_stream;
};

constexpr uint8_t drifts_frames[] = {0, 1, 3};

TEST_F(NodeDetector, AnnouncesWithEachThresholdWhatTheSweepFinds) {
  const std::vector<double> thresholds = {2.5, 3.5, 4.5, 6};
  for (const uint8_t drift : drifts_frames) {
    const auto lowest = database(thresholds.front());
    ThresholdSweep sweep(*lowest, thresholds, drift);
    for (const audio::HashPoint& point : m_stream) sweep.handle_hash(point);
    std::vector<std::vector<Found>> swept(thresholds.size());
    for (const auto& each : sweep.findings()) {
      swept[each.level].emplace_back(each.frame, each.position, each.offset, each.score);
    }
    for (std::size_t level = 0; level < thresholds.size(); ++level) {
      EXPECT_EQ(swept[level], Node(m_stream, database(thresholds[level]), drift).found)
          << "drift " << int{drift} << ", threshold " << thresholds[level];
    }
    EXPECT_GT(swept[0].size(), 20u);
    EXPECT_GE(swept[2].size(), 5u);
  }
}

TEST_F(NodeDetector, AnnouncesAndScoresWhatItsVotesGive) {
  constexpr double threshold = 3;
  for (const uint8_t drift : drifts_frames) {
    SCOPED_TRACE(int{drift});
    const Node node(m_stream, database(threshold), drift);
    std::set<Found> found;
    std::vector<ScorePoint> ends;
    for (const audio::HashSample& sample : samples(threshold)) {
      const SampleVotes votes(sample, drift);
      audio::ReportedShifts reported;
      std::map<uint64_t, double> highest;  // by frame
      votes.count(m_stream, [&](const SampleVotes::Vote& vote) {
        const int32_t shift = vote.voted.shift;
        const double score = vote.voted.score;
        const auto frame = highest.try_emplace(vote.point.offset, score).first;
        frame->second = std::max(frame->second, score);
        if (score < threshold || reported.contains(shift)) return;
        reported.insert(shift);
        found.emplace(vote.point.offset, sample.metadata->id, shift, score);
      });
      const SampleTrack track = votes.track(m_stream);
      EXPECT_EQ(track.nearest, votes.nearest(m_stream));
      std::map<uint64_t, double> voted;
      for (const ScorePoint& point : track.points) voted[point.frame] = point.voted.score;
      EXPECT_EQ(voted, highest);
      ends.push_back(track.points.back());
    }
    EXPECT_GE(found.size(), 5u);
    EXPECT_EQ(found, std::set<Found>(node.found.begin(), node.found.end()));
    for (const audio::Match& match : node.best) {
      const ScoredShift& best = ends.at(match.sample->id).best;
      EXPECT_EQ(std::pair(best.shift, best.score), std::pair(match.offset, match.score));
    }
  }
}

TEST_F(NodeDetector, RunnerUpOfATrackIsTheMostVotedShiftFarFromTheBest) {
  using Shift = std::tuple<int32_t, uint32_t, double>;
  for (const std::size_t i : {3u, 5u}) {  // one that is there, one that is not
    const SampleVotes votes(samples(3)[i], 1);
    std::map<int32_t, uint32_t> seen;                // by shift, when it was last voted for
    std::map<uint64_t, Shift> expected, runners_up;  // by frame
    ScoredShift best;
    votes.count(m_stream, [&](const SampleVotes::Vote& vote) {
      seen[vote.voted.shift] = vote.voted.votes;
      if (vote.voted.votes > best.votes) best = vote.voted;
      Shift second;
      for (const auto& [shift, count] : seen) {
        if (std::abs(shift - best.shift) <= 8 || count <= std::get<1>(second)) continue;
        second = {shift, count, audio::SamplesDetector::score(count, vote.total, vote.shifts)};
      }
      expected[vote.point.offset] = second;
    });
    for (const ScorePoint& point : votes.track(m_stream).points) {
      const auto& [shift, count, score] = point.runner_up;
      runners_up[point.frame] = {shift, count, score};
    }
    EXPECT_GT(expected.size(), 100u);
    EXPECT_TRUE(runners_up == expected) << i;
  }
}

}  // namespace
}  // namespace cv::tools
