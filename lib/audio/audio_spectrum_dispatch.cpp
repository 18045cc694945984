#include "audio/audio_spectrum_dispatch.h"

#include <atomic>

namespace cv::audio {

namespace {

// The baseline until the choice is made: static objects of other sources may come first.
constinit std::atomic<const SpectrumKernel*> current = &baseline_spectrum_kernel;

[[maybe_unused]] const bool chosen = [] {
  use_spectrum_kernel(*usable_spectrum_kernels().back());
  return true;
}();

}  // namespace

std::vector<const SpectrumKernel*> usable_spectrum_kernels() {
  std::vector<const SpectrumKernel*> kernels = {&baseline_spectrum_kernel};
  if (__builtin_cpu_supports("avx2")) kernels.push_back(&avx2_spectrum_kernel);
  return kernels;
}

const SpectrumKernel& spectrum_kernel() { return *current.load(std::memory_order_relaxed); }

void use_spectrum_kernel(const SpectrumKernel& kernel) {
  current.store(&kernel, std::memory_order_relaxed);
}

}  // namespace cv::audio
