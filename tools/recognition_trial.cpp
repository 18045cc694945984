#include "tools/recognition_trial.h"

#include <cmath>
#include <utility>

namespace cv::tools {

namespace {

/// Keeps the announcement with the highest score.
class Highest : public audio::SamplesDetectorCallback {
 public:
  void on_sample_detected(audio::Match match, void*) override {
    if (peak && match.score <= peak->score) return;
    peak = PeakMatch{match.score, match.offset, frame, match.start, match.end};
  }

  uint32_t frame = 0;  // of the point at hand
  std::optional<PeakMatch> peak;
};

/// The highest score announced at this threshold: a shift is announced once, so it may have got higher.
std::optional<PeakMatch> highest_announced(const Points& sample, const Points& stream,
                                           unsigned drift_frames, double threshold) {
  audio::SamplesDetector detector;
  detector.set_database(new audio::HashDatabase({make_hash_sample(1, {}, threshold, sample)}));
  detector.set_drift(static_cast<uint8_t>(drift_frames));
  Highest highest;
  for (const audio::HashPoint& point : stream) {
    highest.frame = point.offset;
    detector.handle_hash(point, highest, nullptr);
  }
  return highest.peak;
}

// The lowest score that there is above 0 is log2 of a ratio of whole numbers above 1.
constexpr double smallest_threshold = 1e-9;

}  // namespace

audio::HashSample make_hash_sample(uint32_t id, std::string name, double threshold, Points points) {
  audio::HashSample sample;
  sample.metadata = new audio::SampleMetadata;
  sample.metadata->id = id;
  sample.metadata->threshold = threshold;
  sample.metadata->name = std::move(name);
  sample.payload = new audio::HashSamplePayload;
  sample.payload->points = std::move(points);
  return sample;
}

std::optional<PeakMatch> peak_match(const Points& sample, const Points& stream,
                                    unsigned drift_frames) {
  std::optional<PeakMatch> peak;
  double threshold = smallest_threshold;
  while (const auto higher = highest_announced(sample, stream, drift_frames, threshold)) {
    peak = higher;
    threshold = std::nextafter(peak->score, HUGE_VAL);
  }
  return peak;
}

Points as_stream(const Points& sample) {
  Points stream;
  for (const audio::HashPoint& point : sample) {
    if (stream.empty() || stream.back().offset != point.offset) stream.push_back(point);
  }
  return stream;
}

}  // namespace cv::tools
