// Samples made of given points, and what a database made of them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "audio/audio_hash_database.h"

namespace cv::test {

inline rc_ptr<audio::HashSamplePayload> make_payload(std::vector<audio::HashPoint> points) {
  rc_ptr<audio::HashSamplePayload> payload(new audio::HashSamplePayload());
  payload->points = std::move(points);
  return payload;
}

inline rc_ptr<audio::SampleMetadata> make_metadata(uint32_t id, double threshold = 3.0) {
  rc_ptr<audio::SampleMetadata> metadata(new audio::SampleMetadata());
  metadata->id = id;
  metadata->threshold = threshold;
  return metadata;
}

inline audio::HashSample make_sample(uint32_t id, std::vector<audio::HashPoint> points,
                                     double threshold = 3.0) {
  return {make_metadata(id, threshold), make_payload(std::move(points))};
}

inline std::vector<audio::HashDatabaseEntry> entries_of(const audio::HashDatabase& database,
                                                        uint32_t hash) {
  const audio::HashDatabase::Entries entries = database.entries(hash);
  return {entries.begin(), entries.end()};
}

}  // namespace cv::test
