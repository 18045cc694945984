// Runs code under every spectrum kernel that this processor has the instructions for.
#pragma once

#include <gtest/gtest.h>

#include "audio/audio_spectrum_dispatch.h"

namespace cv::test {

/// Puts a kernel to use, and the former one again in the end.
class KernelInUse {
 public:
  explicit KernelInUse(const audio::SpectrumKernel& kernel) : m_former(audio::spectrum_kernel()) {
    audio::use_spectrum_kernel(kernel);
  }
  ~KernelInUse() { audio::use_spectrum_kernel(m_former); }
  KernelInUse(const KernelInUse&) = delete;
  KernelInUse& operator=(const KernelInUse&) = delete;

 private:
  const audio::SpectrumKernel& m_former;
};

template <typename Code>
void under_each_kernel(Code code) {
  for (const audio::SpectrumKernel* kernel : audio::usable_spectrum_kernels()) {
    SCOPED_TRACE(kernel->name);
    const KernelInUse in_use(*kernel);
    code();
  }
}

}  // namespace cv::test
