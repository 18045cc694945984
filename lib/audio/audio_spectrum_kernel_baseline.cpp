// Compiled for what every x86-64 processor has, SSE2.
#include "audio/audio_hash_kernel_impl.h"
#include "audio/audio_spectrum_kernel_impl.h"

namespace cv::audio {

const SpectrumKernel baseline_spectrum_kernel = {"SSE2", analyse, hash};

}  // namespace cv::audio
