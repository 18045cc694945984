// A spectrum frame and its hash point: the plain model, every kernel, and the measure that FFTW sets.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <string>
#include <vector>

#include "audio/audio_hash_generator.h"
#include "audio/audio_spectrum_dispatch.h"
#include "audio/audio_spectrum_generator.h"
#include "fftw_frame.h"
#include "ratio_main.h"
#include "support/plain_spectrum.h"
#include "support/recordings.h"

namespace cv::bench {

namespace {

constexpr std::size_t packet_samples = 160;  // 20 ms

/// About a minute of speech.
const std::vector<int16_t>& speech() {
  static const std::vector<int16_t> samples = [] {
    std::vector<int16_t> joined;
    for (const auto& prompt : test::english_prompts(20000)) {
      joined.insert(joined.end(), prompt.samples.begin(), prompt.samples.end());
      if (joined.size() >= 480000) break;
    }
    joined.resize(joined.size() / packet_samples * packet_samples);
    return joined;
  }();
  return samples;
}

/// Takes the point of every frame, as the daemon does.
class PointCounter : public audio::SpectrumGeneratorCallback, public audio::HashGeneratorCallback {
 public:
  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    ++frames;
    m_generator.compute_hash(frame, *this, nullptr);
  }
  void on_hash_data(audio::HashPoint point, void*) override { hashes += point.hash; }

  uint64_t frames = 0;
  uint64_t hashes = 0;

 private:
  audio::HashGenerator m_generator;
};

class PlainPointCounter : public audio::SpectrumGeneratorCallback {
 public:
  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    ++frames;
    if (const auto point = test::plain_hash(frame)) hashes += point->hash;
  }

  uint64_t frames = 0;
  uint64_t hashes = 0;
};

template <typename Generator, typename Counter>
void run_packets(benchmark::State& state) {
  Generator generator;
  Counter counter;
  for (auto _ : state) {
    for (std::size_t at = 0; at < speech().size(); at += packet_samples) {
      generator.compute_spectrum(&speech()[at], packet_samples, counter, nullptr);
    }
  }
  benchmark::DoNotOptimize(counter.hashes);
  state.SetItemsProcessed(static_cast<int64_t>(counter.frames));
}

void run_kernel(benchmark::State& state, const audio::SpectrumKernel& kernel) {
  audio::use_spectrum_kernel(kernel);
  run_packets<audio::SpectrumGenerator, PointCounter>(state);
}

/// No ring and no callbacks.
void run_fftw(benchmark::State& state) {
  FftwFrame fftw;
  audio::SpectrumFrame frame;
  audio::FrameStatistics statistics;
  int64_t frames = 0;
  uint64_t hashes = 0;
  for (auto _ : state) {
    for (std::size_t at = 0; at + 256 <= speech().size(); at += 128, ++frames) {
      fftw.analyse(&speech()[at], frame.magnitudes.data(), &statistics);
      if (statistics.deviation < 1.0) continue;
      hashes += audio::avx2_spectrum_kernel.hash(frame.magnitudes.data());
    }
  }
  benchmark::DoNotOptimize(hashes);
  state.SetItemsProcessed(frames);
}

void add_all() {
  const std::string plain = "frame_and_point/plain";
  const std::string fftw = "frame_and_point/FFTW";
  const auto add = [](const std::string& name, auto code) {
    benchmark::RegisterBenchmark(name.c_str(), code)->Unit(benchmark::kMillisecond)->MinTime(0.1);
  };
  add(plain, run_packets<test::PlainSpectrumGenerator, PlainPointCounter>);
  const auto kernels = audio::usable_spectrum_kernels();
  const bool wide = kernels.back() == &audio::avx2_spectrum_kernel;
  if (wide) add(fftw, run_fftw);
  for (const audio::SpectrumKernel* kernel : kernels) {
    const std::string fast = std::string("frame_and_point/") + kernel->name;
    add(fast, [kernel](benchmark::State& state) { run_kernel(state, *kernel); });
    add_ratio(plain, fast);
    if (wide) add_ratio(fast, fftw);
  }
}

}  // namespace

}  // namespace cv::bench

int main(int argc, char** argv) {
  cv::bench::add_all();
  return cv::bench::run(argc, argv);
}
