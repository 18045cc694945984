// The detector against the plain model: every announcement and every listed match, bit for bit.
#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "audio/audio_fingerprint.h"
#include "audio/audio_samples_detector.h"
#include "audio/findings.h"
#include "audio/hash_samples.h"
#include "support/plain_samples_detector.h"
#include "support/recordings.h"
#include "support/workload.h"

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
using cv::test::scaled;
using Points = std::vector<HashPoint>;

/// Both, fed with the same points.
class Pair {
 public:
  Pair(const std::vector<HashSample>& samples, uint8_t drift)
      : m_plain_database(samples), m_plain(m_plain_database, drift) {
    m_detector.set_database(cv::rc_ptr<HashDatabase>(new HashDatabase(samples)));
    m_detector.set_drift(drift);
  }

  void hear(const Points& stream) {
    for (const HashPoint& point : stream) {
      m_detector.handle_hash(point, m_found, nullptr);
      m_plain.handle_hash(point, m_expected, nullptr);
    }
  }

  /// What they have found so far; gives the number of announcements.
  std::size_t compare() const {
    EXPECT_EQ(findings(m_found.matches), findings(m_expected.matches));
    std::vector<Match> matches;
    std::vector<Match> expected;
    m_detector.get_match(matches);
    m_plain.get_match(expected);
    EXPECT_TRUE(std::is_sorted(matches.begin(), matches.end(), SamplesDetector::score_comparision));
    EXPECT_EQ(sorted(matches), sorted(expected));  // equal scores may come in any order
    return m_found.matches.size();
  }

 private:
  static std::vector<Finding> sorted(const std::vector<Match>& matches) {
    auto result = findings(matches);
    std::sort(result.begin(), result.end());
    return result;
  }

  cv::test::PlainHashDatabase m_plain_database;
  cv::test::PlainSamplesDetector m_plain;
  SamplesDetector m_detector;
  MatchCollector m_found;
  MatchCollector m_expected;
};

// Random points.

struct Kind {
  const char* name;
  uint32_t sample_frames;
  uint32_t points_a_frame;  // up to, of samples and streams
  uint32_t wild_offsets;    // one offset of a sample in so many may be any
  uint32_t first_frame;     // of the stream
  uint32_t longest_jump;    // ahead, now and then
  bool goes_back = false;   // now and then
};

const Kind kinds[] = {
    {"plain samples", 80, 1, 0, 0, 0},
    {"wild offsets in some samples", 80, 1, 500, 0, 0},
    {"wild offsets everywhere", 80, 1, 20, 0, 0},
    {"several points a frame", 60, 4, 0, 7, 0},
    {"frames that wrap", 100, 2, 0, 0xFFFFFF00, 0},
    {"gaps", 100, 1, 0, 0, 90},
    {"gaps longer than the samples", 50, 2, 500, 0, 1000},
    {"gaps of years", 50, 1, 0, 5, 1u << 30},
    {"frames that go back", 80, 1, 0, 1000, 0, true},
    {"everything at once", 80, 3, 300, 0xFFFFFF80, 300, true},
    {"long samples", 700, 1, 0, 0, 0},
};

const double thresholds[] = {3,
                             0,
                             1,
                             2.5,
                             4,
                             5,
                             -1,
                             8,
                             0.3,
                             40,
                             std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity()};

class Random {
 public:
  Random(const Kind& kind, unsigned seed)
      : m_kind(kind), m_engine(seed), m_hashes(3u << seed % 8) {}

  /// Samples of common and of rare hashes; some points twice, some identifiers given again.
  std::vector<HashSample> samples() {
    std::vector<HashSample> samples;
    for (uint32_t i = 0; i < 14; ++i) {
      Points points;
      for (uint32_t frame = 0; frame < m_kind.sample_frames; ++frame) {
        for (uint32_t n = below(m_kind.points_a_frame + 1); n > 0; --n) {
          points.push_back({hash(), wild() ? static_cast<uint32_t>(m_engine()) : frame});
          if (below(40) == 0) points.push_back(points.back());
        }
      }
      if (below(4) == 0) std::shuffle(points.begin(), points.end(), m_engine);
      const uint32_t id = below(8) == 0 ? 0 : i * 7919;
      samples.push_back(make_sample(id, points, thresholds[below(std::size(thresholds))]));
    }
    return samples;
  }

  /// Sounds of their own, and pieces of the samples with a third of their points.
  Points stream(const std::vector<HashSample>& samples, std::size_t frames) {
    Points stream;
    uint32_t offset = m_kind.first_frame;
    std::size_t in_piece = 0;
    const Points* heard = nullptr;
    for (std::size_t i = 0; i < frames; ++i, ++offset, ++in_piece) {
      if (heard == nullptr || in_piece >= heard->size() || below(100) == 0) {
        heard = &samples[below(static_cast<uint32_t>(samples.size()))].payload->points;
        in_piece = 0;
        if (m_kind.longest_jump != 0) offset += below(m_kind.longest_jump);
        if (m_kind.goes_back) offset -= below(200);
      }
      for (uint32_t n = below(m_kind.points_a_frame + 1); n > 0; --n) {
        const bool played = in_piece < heard->size() && below(3) == 0;
        stream.push_back({played ? (*heard)[in_piece].hash : hash(), offset});
      }
    }
    return stream;
  }

 private:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(m_engine() % limit); }
  uint32_t hash() { return below(1 + below(m_hashes)); }
  bool wild() { return m_kind.wild_offsets != 0 && below(m_kind.wild_offsets) == 0; }

  const Kind& m_kind;
  std::mt19937 m_engine;
  uint32_t m_hashes;
};

TEST(SamplesDetectorModel, AgreesOnRandomPoints) {
  for (const Kind& kind : kinds) {
    std::size_t announced = 0;
    for (unsigned seed = 0; seed < 16; ++seed) {
      SCOPED_TRACE(kind.name);
      SCOPED_TRACE(seed);
      Random random(kind, seed);
      const auto samples = random.samples();
      Pair pair(samples, static_cast<uint8_t>(seed % 4));
      const Points stream = random.stream(samples, scaled(1200));
      const auto middle = stream.begin() + static_cast<std::ptrdiff_t>(stream.size() / 3);
      pair.hear({stream.begin(), middle});
      pair.compare();
      pair.hear({middle, stream.end()});
      announced += pair.compare();
      if (HasFailure()) return;
    }
    EXPECT_GT(announced, 200u / cv::test::slowdown) << kind.name;
  }
}

TEST(SamplesDetectorModel, AgreesOnAnyDrift) {
  const Kind& kind = kinds[3];
  for (const unsigned drift : {4u, 7u, 8u, 9u, 40u, 255u}) {
    SCOPED_TRACE(drift);
    Random random(kind, drift);
    const auto samples = random.samples();
    Pair pair(samples, static_cast<uint8_t>(drift));
    pair.hear(random.stream(samples, scaled(200)));
    EXPECT_GT(pair.compare(), 10u);
  }
}

/// A sound that does not change: every frame votes for every shift, far more than 255 times.
TEST(SamplesDetectorModel, AgreesOnSteadyTones) {
  const auto tone = [](uint32_t hash, uint32_t frames) {
    Points points;
    for (uint32_t frame = 0; frame < frames; ++frame) points.push_back({hash, frame});
    return points;
  };
  Points mixed = tone(1, 400);
  for (uint32_t frame = 0; frame < 400; frame += 5) mixed[frame].hash = frame;
  std::vector<HashSample> samples;
  for (const double threshold : {0.2, 1.0, 3.0}) {
    const auto id = static_cast<uint32_t>(samples.size());
    samples.push_back(make_sample(id, tone(1, 600), threshold));
    samples.push_back(make_sample(id + 1, mixed, threshold));
  }
  Points call = tone(1, 300);
  for (uint32_t frame = 300; frame < 1100; ++frame) {
    call.push_back({mixed[frame % 400].hash, frame});
  }
  for (const uint8_t drift : {uint8_t{0}, uint8_t{1}, uint8_t{3}}) {
    Pair pair(samples, drift);
    pair.hear(call);
    EXPECT_GT(pair.compare(), 50u);
  }
}

/// A shift passes 255 votes unnoticed: two shifts and the one between them have had more at one stroke.
TEST(SamplesDetectorModel, AgreesOnManyVotesBehindABetterShift) {
  Points call;
  for (uint32_t frame = 0; frame < 400; ++frame) call.push_back({5, 1000 + 5 * frame});
  for (const uint32_t frame : {4000u, 4002u}) call.insert(call.end(), 150, {5, frame});
  call.push_back({6, 4004});
  call.insert(call.end(), 5000, {5, 4100});
  Pair pair({make_sample(1, {{5, 0}, {6, 3}}, 10.0)}, 1);
  pair.hear(call);
  EXPECT_EQ(pair.compare(), 1u);
}

// Recorded speech: a database of all English prompts.

/// A minute or less of prompts in turn, none on a multiple of the hop.
Points call_of(const std::vector<cv::test::Recording>& prompts, std::size_t seconds) {
  std::vector<int16_t> call(1000, 3);
  for (std::size_t i = 0; call.size() < seconds * 8000; ++i) {
    const auto& heard = prompts[i * 29 % prompts.size()].samples;
    call.insert(call.end(), heard.begin(), heard.end());
    call.insert(call.end(), 200 + 37 * i, 0);
  }
  call.resize(seconds * 8000);
  return cv::audio::fingerprint(call);
}

void compare_on_speech(unsigned phases) {
  auto english = cv::test::english_prompts(8000);
  auto french = cv::test::french_prompts(8000);
  ASSERT_GT(english.size(), 200u);
  std::vector<HashSample> samples;
  const double speech_thresholds[] = {3, 3.5, 2, 5, 7};
  for (uint32_t i = 0; i < english.size(); i += cv::test::slowdown) {
    samples.push_back(make_sample(i, cv::audio::fingerprint(english[i].samples, phases),
                                  speech_thresholds[i % std::size(speech_thresholds)]));
  }
  std::size_t announced = 0;
  for (const auto* heard : {&english, &french}) {
    const Points call = call_of(*heard, heard == &english ? 25 : 12);
    for (const uint8_t drift : {uint8_t{0}, uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
      SCOPED_TRACE(heard->front().name);
      SCOPED_TRACE(int{drift});
      Pair pair(samples, drift);
      pair.hear(call);
      announced += pair.compare();
    }
  }
  EXPECT_GT(announced, 40u / cv::test::slowdown);
}

TEST(SamplesDetectorModel, AgreesOnRecordedSpeech) { compare_on_speech(1); }
TEST(SamplesDetectorModel, AgreesOnRecordedSpeechOfFourPhases) { compare_on_speech(4); }

}  // namespace
