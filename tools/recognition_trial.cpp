#include "tools/recognition_trial.h"

#include <utility>

namespace cv::tools {

namespace {

/// What is announced is of no interest here.
class Deaf : public audio::SamplesDetectorCallback {
 public:
  void on_sample_detected(audio::Match, void*) override {}
};

// Every best match is to be seen, however bad.
constexpr double least_threshold = 1e-6;

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
  audio::SamplesDetector detector;
  detector.set_database(
      new audio::HashDatabase({make_hash_sample(1, {}, least_threshold, sample)}));
  detector.set_drift(static_cast<uint8_t>(drift_frames));
  Deaf deaf;
  std::optional<PeakMatch> peak;
  std::vector<audio::Match> best;
  for (const audio::HashPoint& point : stream) {
    detector.handle_hash(point, deaf, nullptr);
    best.clear();
    detector.get_match(best);
    // A score falls while other shifts are voted for: the highest one is that of the moment.
    if (best.empty() || (peak && best.front().score <= peak->score)) continue;
    const audio::Match& match = best.front();
    peak = PeakMatch{match.score, match.offset, point.offset, match.start, match.end};
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
