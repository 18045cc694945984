// Audio through a telephone line's codec and back, in memory.
#pragma once

#include <cstdint>
#include <vector>

namespace cv::tools {

enum class SoundCodec { mulaw, alaw, gsm };

/// 8,000 samples a second, as many as went in. libsndfile's encoder and decoder; GSM is the full-rate
/// codec 06.10, in blocks of 160 samples from the first on. Throws std::runtime_error when the library
/// was built without it.
std::vector<int16_t> through_codec(const std::vector<int16_t>& samples, SoundCodec codec);

/// Encoded bytes as audio; of mu-law and A-law each byte is a sample. Throws as through_codec().
std::vector<int16_t> decode_sound(const std::vector<unsigned char>& bytes, SoundCodec codec);

}  // namespace cv::tools
