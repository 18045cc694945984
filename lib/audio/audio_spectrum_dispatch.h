// Which spectrum kernel runs: the fastest one that the processor has the instructions for, chosen once
// before main(). All give the same bits, so the choice shows in nothing but time.
#pragma once

#include <vector>

#include "audio/audio_spectrum_kernel.h"

namespace cv::audio {

/// The kernels this processor can run, the slowest first.
std::vector<const SpectrumKernel*> usable_spectrum_kernels();

/// The one in use. Any thread.
const SpectrumKernel& spectrum_kernel();

/// Puts another of the usable kernels to use, for tests and benchmarks. Any thread.
void use_spectrum_kernel(const SpectrumKernel& kernel);

}  // namespace cv::audio
