// What the matching is measured with: databases and streams made of recorded prompts and of synthetic
// sounds. Always the same.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "audio/audio_hash_database.h"

namespace cv::bench {

using Points = std::vector<audio::HashPoint>;

/// The first `count` of: every English prompt; every French one; then all of these again and again
/// without their first 40, 80, ... audio samples, which gives other frames and so mostly other hashes.
/// Thresholds are 3. `phases` as in audio::fingerprint().
std::vector<audio::HashSample> speech_samples(std::size_t count, unsigned phases = 1);
std::size_t english_prompt_count();

/// A steady tone of 1004 Hz as one more sample.
audio::HashSample tone_sample(unsigned seconds);

// Streams of one minute, their points in order of frame.
Points related_speech();  // English prompts
Points
unrelated_speech();  // French prompts, of another speaker; the larger databases hold them too
Points music();      // chords of four plucked notes, twice a second another one
Points noise();      // white
Points tone();

}  // namespace cv::bench
