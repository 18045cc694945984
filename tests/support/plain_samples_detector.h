// The matching of a stream against known samples with the standard hash maps and lists, one step after
// the other. The yardstick of the product's detector: the same announcements, in the same order, with
// the same score bits. It has its own index, built from the same samples.
#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "audio/audio_samples_detector.h"

namespace cv::test {

class PlainHashDatabase {
 public:
  explicit PlainHashDatabase(const std::vector<audio::HashSample>& samples);

  std::unordered_map<uint32_t, audio::HashSample> samples;
  std::unordered_map<uint32_t, std::list<audio::HashDatabaseEntry>> index;
};

class PlainSamplesDetector {
 public:
  PlainSamplesDetector(const PlainHashDatabase& database, uint8_t drift)
      : m_database(database), m_drift(drift) {}

  void handle_hash(audio::HashPoint point, audio::SamplesDetectorCallback& callback, void* user);
  void get_match(std::vector<audio::Match>& out) const;

 private:
  struct DeltaMatch {
    uint32_t hits = 0;
    uint32_t first = 0xFFFFFFFF;
    uint32_t last = 0;
  };
  struct TrackMatch {
    uint64_t total = 0;
    uint64_t best = 0;
    int32_t best_delta = 0;
    std::unordered_map<int32_t, DeltaMatch> deltas;
    std::unordered_set<int32_t> reported;
  };

  static double score(uint64_t c, const TrackMatch& track);
  uint64_t windowed_count(const TrackMatch& track, int32_t d) const;

  const PlainHashDatabase& m_database;
  uint8_t m_drift;
  std::unordered_map<uint32_t, TrackMatch> m_tracks;
};

/// Keeps every match it is given.
struct MatchCollector : audio::SamplesDetectorCallback {
  void on_sample_detected(audio::Match match, void*) override { matches.push_back(match); }
  std::vector<audio::Match> matches;
};

}  // namespace cv::test
