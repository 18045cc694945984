#include "audio/audio_spectrum_statistics.h"

#include <cfloat>

namespace cv::audio {

namespace {

constexpr double log2_of_127 = 6.9886846867721655;

double deviation_of(const SpectrumFrame& frame) {
  double sum = 0;
  for (const double magnitude : frame.magnitudes) {
    const double difference = magnitude - frame.mean;
    sum += difference * difference;
  }
  return std::sqrt(sum / frame_magnitudes);
}

double entropy_of(const SpectrumFrame& frame, double magnitude_sum) {
  double sum = 0;
  for (const double magnitude : frame.magnitudes) {
    const double p = magnitude / magnitude_sum;
    sum += p * std::log2(p + DBL_EPSILON);
  }
  return -sum / log2_of_127;
}

}  // namespace

void take_exact_statistics(SpectrumFrame& frame) {
  double sum = 0;
  double square_sum = 0;
  for (const double magnitude : frame.magnitudes) {
    sum += magnitude;
    square_sum += magnitude * magnitude;
  }
  frame.mean = sum / frame_magnitudes;
  const bool silent = !(frame.mean > DBL_EPSILON);
  frame.power = silent ? 0 : square_sum / frame_magnitudes;
  frame.deviation = silent ? 0 : deviation_of(frame);
  frame.entropy = silent ? 1 : entropy_of(frame, sum);
}

SpectrumFrame with_exact_statistics(const SpectrumFrame& frame) {
  SpectrumFrame exact = frame;
  take_exact_statistics(exact);
  const auto agrees = [&](double SpectrumFrame::*statistic) {
    return frame.*statistic == exact.*statistic || in_doubt(frame.*statistic, exact.*statistic);
  };
  const bool all_agree = agrees(&SpectrumFrame::mean) && agrees(&SpectrumFrame::power) &&
                         agrees(&SpectrumFrame::deviation) && agrees(&SpectrumFrame::entropy);
  return all_agree ? exact : frame;
}

}  // namespace cv::audio
