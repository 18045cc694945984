#include "fftw_frame.h"

#include "audio/audio_spectrum_vector.h"
#include "audio/audio_window.h"

namespace cv::bench {

namespace {

using namespace cv::audio;

constexpr size_t window_samples = 256;
constexpr size_t bins = 128;
constexpr double epsilon = 2.220446049250313e-16;

double sum_of(Vec x) { return (x[0] + x[1]) + (x[2] + x[3]); }

Vec magnitudes_at(const double* spectrum, size_t k) {
  const Vec a = load(spectrum + 2 * k);
  const Vec b = load(spectrum + 2 * k + 4);
  const Vec squares = _mm256_permute4x64_pd(_mm256_hadd_pd(a * a, b * b), 0b11011000);
  return square_root(squares) * (1.0 / 128);
}

}  // namespace

FftwFrame::FftwFrame()
    : m_in(fftw_alloc_real(window_samples)),
      m_out(fftw_alloc_complex(bins + 1)),
      m_plan(fftw_plan_dft_r2c_1d(window_samples, m_in, m_out, FFTW_PATIENT)) {}

FftwFrame::~FftwFrame() {
  fftw_destroy_plan(m_plan);
  fftw_free(m_out);
  fftw_free(m_in);
}

void FftwFrame::analyse(const int16_t* window, double* magnitudes, FrameStatistics* statistics) {
  statistics->amplitude = absolute_sum<window_samples>(window) / 256.0;
  for (size_t n = 0; n < window_samples; n += lanes) {
    store(m_in + n, convert(window + n) * load(window_func + n));
  }
  fftw_execute(m_plan);

  alignas(64) double all[bins];
  Vec sum = {}, square_sum = {};
  for (size_t k = 0; k < bins; k += lanes) {
    Vec m = magnitudes_at(&m_out[0][0], k);
    if (k == 0) m = without_first(m);
    sum += m;
    square_sum += m * m;
    store(all + k, m);
  }
  const double total = sum_of(sum);
  const double mean = total / 127;
  *statistics = {mean, sum_of(square_sum) / 127, 1, 0, statistics->amplitude};
  __builtin_memcpy(magnitudes, all + 1, 127 * sizeof *magnitudes);
  if (!(mean > epsilon)) return;

  Vec spread = {}, terms = {};
  const double scale = 1 / total;
  constexpr size_t batch = 4;
  for (size_t k = 0; k < bins; k += batch * lanes) {
    Vec p[batch], logs[batch];
    for (size_t i = 0; i < batch; ++i) {
      const size_t bin = k + i * lanes;
      const Vec m = load(all + bin);
      const Vec difference = bin == 0 ? without_first(m - mean) : m - mean;
      spread += difference * difference;
      p[i] = m * scale;
      logs[i] = p[i] + epsilon;
    }
    take_log_2(logs);
    for (size_t i = 0; i < batch; ++i) terms += p[i] * logs[i];
  }
  statistics->deviation = __builtin_sqrt(sum_of(spread) / 127);
  statistics->entropy = -sum_of(terms) / 6.9886846867721655;
}

}  // namespace cv::bench
