// Compiled for AVX2, without fused multiply-add: only audio_spectrum_dispatch.cpp may refer to it.
#include "audio/audio_hash_kernel_impl.h"
#include "audio/audio_spectrum_kernel_impl.h"

namespace cv::audio {

const SpectrumKernel avx2_spectrum_kernel = {"AVX2", analyse, hash};

}  // namespace cv::audio
