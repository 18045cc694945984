// Fingerprints whole recordings: what a sample's payload is made of.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "audio/audio_hash_generator.h"

namespace cv::audio {

inline constexpr unsigned max_fingerprint_phases = 128;

/// The points of a recording of 8,000 samples a second.
///
/// A call rarely starts a recording on a multiple of the 128-sample hop, and then only part of the
/// points agree. With `phases` P (1 to max_fingerprint_phases, else std::invalid_argument) the
/// recording is fingerprinted P times, phase k without its first k * 128 / P samples; each point
/// keeps the frame of its own phase, and a (frame, hash) pair found in several phases is kept once.
/// Ordered by frame, then phase. One phase gives the plain points.
std::vector<HashPoint> fingerprint(std::span<const int16_t> samples, unsigned phases = 1);

}  // namespace cv::audio
