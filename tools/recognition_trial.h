// Samples tried out on streams of points with the node's own detector.
#pragma once

#include <cstdint>
#include <optional>

#include "audio/audio_samples_detector.h"
#include "tools/hash_selection.h"

namespace cv::tools {

/// Where a stream came closest to a sample.
struct PeakMatch {
  /// The highest score at any moment: the highest threshold that would have been reached.
  double score = 0;
  /// Stream frame at which the sample's frame 0 lies.
  int32_t shift = 0;
  /// Stream frame at which the score was reached.
  uint32_t reached_frame = 0;
  /// Sample frames that voted for this shift until then: the lowest, and the highest plus one.
  uint32_t first_frame = 0;
  uint32_t end_frame = 0;
};

/// `stream` ascends by frame. Empty when no score is above 0.
std::optional<PeakMatch> peak_match(const Points& sample, const Points& stream,
                                    unsigned drift_frames);

/// A sample for a database.
audio::HashSample make_hash_sample(uint32_t id, std::string name, double threshold, Points points);

/// One point a frame, as a call gives them: the first of each frame, which is that of the first phase
/// where it has one.
Points as_stream(const Points& sample);

}  // namespace cv::tools
