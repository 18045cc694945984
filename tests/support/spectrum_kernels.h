// Runs code under every spectrum kernel that this processor has the instructions for.
#pragma once

#include <gtest/gtest.h>

#include "audio/audio_spectrum_dispatch.h"

namespace cv::test {

template <typename Code>
void under_each_kernel(Code code) {
  const audio::SpectrumKernel& former = audio::spectrum_kernel();
  for (const audio::SpectrumKernel* kernel : audio::usable_spectrum_kernels()) {
    SCOPED_TRACE(kernel->name);
    audio::use_spectrum_kernel(*kernel);
    code();
  }
  audio::use_spectrum_kernel(former);
}

}  // namespace cv::test
