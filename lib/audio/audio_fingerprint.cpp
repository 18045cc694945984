#include "audio/audio_fingerprint.h"

#include <algorithm>
#include <stdexcept>

namespace cv::audio {

namespace {

/// Spectra straight to points.
class PointCollector : public SpectrumGeneratorCallback {
 public:
  explicit PointCollector(std::vector<HashPoint>& points) : m_points(points) {}

  void on_spectrum_data(const SpectrumFrame& frame, void*) override {
    m_generator.compute_hash(frame, m_extractor, &m_points);
  }

 private:
  std::vector<HashPoint>& m_points;
  HashGenerator m_generator;
  HashExtractor m_extractor;
};

void append_points(std::span<const int16_t> samples, std::vector<HashPoint>& points) {
  SpectrumGenerator generator;
  PointCollector collector(points);
  generator.compute_spectrum(samples.data(), samples.size(), collector, nullptr);
}

/// `points` grouped by frame. A frame has one point a phase at most, so the search is short.
void drop_repeated(std::vector<HashPoint>& points) {
  std::vector<HashPoint> kept;
  auto frame_begin = kept.size();
  for (const HashPoint& point : points) {
    if (!kept.empty() && kept.back().offset != point.offset) frame_begin = kept.size();
    const auto first = kept.begin() + static_cast<std::ptrdiff_t>(frame_begin);
    if (std::find(first, kept.end(), point) == kept.end()) kept.push_back(point);
  }
  points.swap(kept);
}

}  // namespace

std::vector<HashPoint> fingerprint(std::span<const int16_t> samples, unsigned phases) {
  if (phases < 1 || phases > max_fingerprint_phases) {
    throw std::invalid_argument("fingerprint: number of phases out of range");
  }
  std::vector<HashPoint> points;
  for (std::size_t phase = 0; phase < phases; ++phase) {
    const std::size_t skipped = phase * frame_hop_samples / phases;
    append_points(samples.subspan(std::min(skipped, samples.size())), points);
  }
  std::stable_sort(points.begin(), points.end(),
                   [](const HashPoint& a, const HashPoint& b) { return a.offset < b.offset; });
  drop_repeated(points);
  return points;
}

}  // namespace cv::audio
