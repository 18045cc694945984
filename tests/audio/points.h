// Points of frames, samples made of points, and matches as values to compare.
#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "audio/audio_samples_detector.h"

namespace cv::test {

using Points = std::vector<audio::HashPoint>;

/// The frame's point, if it has one.
inline std::optional<audio::HashPoint> point_of(const audio::SpectrumFrame& frame) {
  audio::HashExtractor extractor;
  Points points;
  audio::HashGenerator().compute_hash(frame, extractor, &points);
  return points.empty() ? std::nullopt : std::optional(points.back());
}

inline audio::HashSample make_sample(uint32_t id, Points points, double threshold = 3.0) {
  rc_ptr<audio::SampleMetadata> metadata(new audio::SampleMetadata());
  metadata->id = id;
  metadata->threshold = threshold;
  rc_ptr<audio::HashSamplePayload> payload(new audio::HashSamplePayload());
  payload->points = std::move(points);
  return {metadata, payload};
}

inline audio::SamplesDetector detector_of(const std::vector<audio::HashSample>& samples,
                                          uint8_t drift) {
  audio::SamplesDetector detector;
  detector.set_database(rc_ptr<audio::HashDatabase>(new audio::HashDatabase(samples)));
  detector.set_drift(drift);
  return detector;
}

/// Identifier, score bits, offset, start, end.
using Finding = std::tuple<uint32_t, uint64_t, int32_t, uint32_t, uint32_t>;

inline std::vector<Finding> findings(const std::vector<audio::Match>& matches) {
  std::vector<Finding> result;
  for (const audio::Match& match : matches) {
    result.emplace_back(match.sample->id, std::bit_cast<uint64_t>(match.score), match.offset,
                        match.start, match.end);
  }
  return result;
}

}  // namespace cv::test
