#include "support/plain_spectrum.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <map>
#include <numbers>
#include <utility>

namespace cv::test {

namespace {

struct Complex {
  double re, im;
};

Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
Complex operator*(Complex a, Complex b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

unsigned reversed(unsigned i) {
  unsigned result = 0;
  for (int bit = 0; bit < 8; ++bit) result = result << 1 | (i >> bit & 1);
  return result;
}

/// exp(-i pi / 2^k).
Complex base_factor(int k) {
  if (k == 0) return {-1, 0};
  if (k == 1) return {0, -1};
  return {std::cos(std::numbers::pi / (1 << k)), -std::sin(std::numbers::pi / (1 << k))};
}

void transform(Complex* data) {
  static const std::array<Complex, 8> base = {base_factor(0), base_factor(1), base_factor(2),
                                              base_factor(3), base_factor(4), base_factor(5),
                                              base_factor(6), base_factor(7)};
  for (unsigned i = 1; i <= 254; ++i) {
    if (i < reversed(i)) std::swap(data[i], data[reversed(i)]);
  }
  Complex slots[128];
  slots[0] = {1, 0};
  for (int stage = 0; stage < 8; ++stage) {
    const int h = 1 << stage;
    const int s = 2 * h;
    for (int j = 0; j < h; ++j) {
      const int slot = j * (256 / s);
      if (j % 2 == 1) slots[slot] = slots[(j - 1) * (256 / s)] * base[stage];
      for (int k = j; k < 256; k += s) {
        const Complex t = slots[slot] * data[k + h];
        data[k + h] = data[k] - t;
        data[k] = data[k] + t;
      }
    }
  }
}

/// Worked out with more digits than a double has, then rounded once.
std::array<double, 256> hamming() {
  std::array<double, 256> window;
  for (int n = 0; n < 256; ++n) {
    const long double angle = 2 * std::numbers::pi_v<long double> * n / 255;
    window[n] = static_cast<double>(0.53836L - 0.46164L * std::cos(angle));
  }
  return window;
}

}  // namespace

void PlainSpectrumGenerator::compute_spectrum(const short* samples, std::size_t count,
                                              audio::SpectrumGeneratorCallback& callback,
                                              void* user) {
  for (std::size_t i = 0; i < count; ++i) {
    m_ring[(m_head + m_count) % 256] = samples[i];
    ++m_count;
    if (m_count < 256) continue;
    audio::SpectrumFrame& frame = m_frames[m_current];
    build_frame(frame);
    frame.index = m_next_index++;
    m_current = 1 - m_current;
    callback.on_spectrum_data(frame, user);
  }
}

void PlainSpectrumGenerator::build_frame(audio::SpectrumFrame& frame) {
  static const std::array<double, 256> window = hamming();
  frame = audio::SpectrumFrame();
  Complex data[256];
  uint32_t absolute_sum = 0;
  for (std::size_t n = 0; n < 256; ++n) {
    const int s = m_ring[(m_head + n) % 256];
    data[n] = {s * window[n], 0};
    absolute_sum += static_cast<uint32_t>(s < 0 ? -s : s);
  }
  frame.amplitude = absolute_sum / 256.0;
  m_head = (m_head + 128) % 256;
  m_count = 128;
  transform(data);

  double S = 0;
  double Q = 0;
  for (std::size_t k = 1; k <= 127; ++k) {
    const double m = std::sqrt(data[k].re * data[k].re + data[k].im * data[k].im) / 128;
    frame.magnitudes[k - 1] = m;
    S += m;
    Q += m * m;
  }
  frame.mean = S / 127;
  if (!(frame.mean > DBL_EPSILON)) return;
  frame.power = Q / 127;
  double spread = 0;
  double entropy = 0;
  for (const double m : frame.magnitudes) {
    spread += (m - frame.mean) * (m - frame.mean);
    const double p = m / S;
    entropy += p * std::log2(p + DBL_EPSILON);
  }
  frame.deviation = std::sqrt(spread / 127);
  frame.entropy = -entropy / 6.9886846867721655;
}

std::optional<audio::HashPoint> plain_hash(const audio::SpectrumFrame& frame) {
  if (frame.deviation < 1.0) return std::nullopt;
  std::vector<std::pair<uint32_t, double>> jumps;
  for (uint32_t i = 1; i <= 63; ++i) {
    jumps.push_back({i, std::fabs(frame.magnitudes[i] - frame.magnitudes[i - 1])});
  }
  std::stable_sort(jumps.begin(), jumps.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  const uint32_t hash = (jumps[0].first & 63) | (jumps[1].first & 63) << 6 |
                        (jumps[2].first & 63) << 12 | (jumps[3].first & 63) << 18;
  return audio::HashPoint{hash, static_cast<uint32_t>(frame.index)};
}

bool same_frame(const audio::SpectrumFrame& frame, const audio::SpectrumFrame& plain) {
  static_assert(sizeof frame == (6 + 127) * 8, "no padding");
  audio::SpectrumFrame adjusted = frame;
  for (const auto statistic : {&audio::SpectrumFrame::mean, &audio::SpectrumFrame::power,
                               &audio::SpectrumFrame::deviation, &audio::SpectrumFrame::entropy}) {
    const double expected = plain.*statistic;
    if (!(std::fabs(frame.*statistic - expected) <= 1e-12 * expected)) return false;
    adjusted.*statistic = expected;
  }
  return std::memcmp(&adjusted, &plain, sizeof plain) == 0;
}

std::vector<audio::SpectrumFrame> plain_frames(std::span<const int16_t> samples) {
  PlainSpectrumGenerator generator;
  FrameCollector collector;
  generator.compute_spectrum(samples.data(), samples.size(), collector, nullptr);
  return collector.frames;
}

std::vector<audio::HashPoint> plain_points(std::span<const int16_t> samples) {
  std::vector<audio::HashPoint> points;
  for (const audio::SpectrumFrame& frame : plain_frames(samples)) {
    if (const auto point = plain_hash(frame)) points.push_back(*point);
  }
  return points;
}

std::vector<audio::HashPoint> plain_fingerprint(std::span<const int16_t> samples, unsigned phases) {
  std::map<uint32_t, std::vector<audio::HashPoint>> by_frame;
  for (unsigned phase = 0; phase < phases; ++phase) {
    const std::size_t skipped = std::min<std::size_t>(phase * 128 / phases, samples.size());
    for (const audio::HashPoint& point : plain_points(samples.subspan(skipped))) {
      auto& points = by_frame[point.offset];
      if (std::find(points.begin(), points.end(), point) == points.end()) points.push_back(point);
    }
  }
  std::vector<audio::HashPoint> all;
  for (const auto& [frame, points] : by_frame) all.insert(all.end(), points.begin(), points.end());
  return all;
}

}  // namespace cv::test
