// The detector against the plain model: every announcement and every listed match, bit for bit.
#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "audio/audio_fingerprint.h"
#include "audio/points.h"
#include "support/plain_samples_detector.h"
#include "support/recordings.h"
#include "support/workload.h"

namespace cv::audio {
namespace {

using test::Finding;
using test::findings;
using test::make_sample;
using test::Points;

/// Both, fed with the same points.
class Pair {
 public:
  Pair(const std::vector<HashSample>& samples, uint8_t drift)
      : m_plain_database(samples),
        m_plain(m_plain_database, drift),
        m_detector(test::detector_of(samples, drift)) {}

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

  test::PlainHashDatabase m_plain_database;
  test::PlainSamplesDetector m_plain;
  SamplesDetector m_detector;
  test::MatchCollector m_found;
  test::MatchCollector m_expected;
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
    {"wild offsets everywhere", 80, 1, 20, 0, 0},
    {"frames that wrap", 100, 2, 0, 0xFFFFFF00, 0},
    {"gaps of years", 50, 1, 0, 5, 1u << 30},
    {"frames that go back", 80, 1, 0, 1000, 0, true},
    {"everything at once", 80, 3, 300, 0xFFFFFF80, 300, true},
    {"long samples", 700, 1, 0, 0, 0},
};

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
const double thresholds[] = {3, 0, 1, 2.5, 4, 5, -1, 8, 0.3, 40, nan, infinity};
const uint8_t drifts[] = {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 4, 8, 9, 40};

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
          points.push_back({hash(), wild() ? wild_offset() : frame});
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
  /// Any, or one whose shift is at the seam of the circle.
  uint32_t wild_offset() {
    return below(2) == 0 ? static_cast<uint32_t>(m_engine()) : 0x80000000 + below(200);
  }
  bool wild() { return m_kind.wild_offsets != 0 && below(m_kind.wild_offsets) == 0; }

  const Kind& m_kind;
  std::mt19937 m_engine;
  uint32_t m_hashes;
};

TEST(SamplesDetectorModel, AgreesOnRandomPoints) {
  for (const Kind& kind : kinds) {
    std::size_t announced = 0;
    for (unsigned seed = 0; seed < std::size(drifts); ++seed) {
      SCOPED_TRACE(kind.name);
      SCOPED_TRACE(seed);
      Random random(kind, seed);
      const auto samples = random.samples();
      Pair pair(samples, drifts[seed]);
      pair.hear(random.stream(samples, test::scaled(600)));
      pair.compare();
      pair.hear(random.stream(samples, test::scaled(600)));
      announced += pair.compare();
      if (HasFailure()) return;
    }
    EXPECT_GT(announced, 200u / test::slowdown) << kind.name;
  }
}

/// A minute or less of prompts in turn, none on a multiple of the hop.
Points call_of(const std::vector<test::Recording>& prompts, std::size_t seconds) {
  std::vector<int16_t> call(1000, 3);
  for (std::size_t i = 0; call.size() < seconds * 8000; ++i) {
    const auto& heard = prompts[i * 29 % prompts.size()].samples;
    call.insert(call.end(), heard.begin(), heard.end());
    call.insert(call.end(), 200 + 37 * i, 0);
  }
  call.resize(seconds * 8000);
  return fingerprint(call);
}

/// A database of all English prompts, of one and of four phases.
TEST(SamplesDetectorModel, AgreesOnRecordedSpeech) {
  const auto english = test::english_prompts(8000);
  ASSERT_GT(english.size(), 200u);
  const Points calls[] = {call_of(english, 25), call_of(test::french_prompts(8000), 12)};
  const double speech_thresholds[] = {3, 3.5, 2, 5, 7};
  for (const unsigned phases : {1u, 4u}) {
    std::vector<HashSample> samples;
    for (uint32_t i = 0; i < english.size(); i += test::slowdown) {
      samples.push_back(make_sample(i, fingerprint(english[i].samples, phases),
                                    speech_thresholds[i % std::size(speech_thresholds)]));
    }
    std::size_t announced = 0;
    for (const Points& call : calls) {
      for (uint8_t drift = 0; drift <= 3; ++drift) {
        SCOPED_TRACE(int{drift});
        Pair pair(samples, drift);
        pair.hear(call);
        announced += pair.compare();
      }
    }
    EXPECT_GT(announced, 40u / test::slowdown) << phases;
  }
}

}  // namespace
}  // namespace cv::audio
