#include "tools/audio_file.h"

#include <cmath>
#include <gtest/gtest.h>

#include "support/sound_folder.h"
#include "tools/fingerprint.h"

namespace cv::tools {
namespace {

constexpr int wav = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int float_wav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class AudioFile : public testing::Test {
 protected:
  /// What a file of these samples is read as.
  template <typename Sample>
  std::vector<int16_t> read(const std::vector<Sample>& samples, int rate_hz = 8000,
                            int channels = 1, int format = wav) {
    test::write_sound(m_path, samples, rate_hz, channels, format);
    std::string error;
    const auto result = read_audio(m_path, error);
    EXPECT_TRUE(result) << error;
    return result.value_or(std::vector<int16_t>());
  }
  test::TemporaryFolder m_folder;
  std::string m_path = m_folder / "a.wav";
};

TEST_F(AudioFile, EveryRateAndNumberOfChannelsComesToTheSameLengthAndLevel) {
  const struct {
    int rate_hz, channels, format;
  } table[] = {{8000, 1, wav},
               {44100, 2, wav},
               {16000, 6, SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
               {8000, 1, SF_FORMAT_WAV | SF_FORMAT_ULAW}};
  for (const auto& [rate_hz, channels, format] : table) {
    SCOPED_TRACE(rate_hz);
    const auto samples =
        read(test::sine(440, 0.5, rate_hz, 2, channels), rate_hz, channels, format);
    EXPECT_NEAR(static_cast<double>(samples.size()), 16000, 1);
    double power = 0;
    for (std::size_t i = 400; i < 15600; ++i) power += double{1} * samples.at(i) * samples.at(i);
    EXPECT_NEAR(std::sqrt(power / 15200), 0.5 * 32768 / std::sqrt(2), 60);
  }
}

TEST_F(AudioFile, BitsAreKeptChannelsAveragedAndPeaksClipped) {
  const std::vector<int16_t> samples = {-32768, -32767, -1, 0, 1, 257, 32767};
  EXPECT_EQ(read(samples), samples);
  EXPECT_EQ(read(std::vector<float>{0.5F, -0.25F, 1.0F, 0.0F}, 8000, 2, float_wav),
            (std::vector<int16_t>{4096, 16384}));
  EXPECT_EQ(read(std::vector<float>{1.5F, -1.5F, 1.0F}, 8000, 1, float_wav),
            (std::vector<int16_t>{32767, -32768, 32767}));
}

TEST_F(AudioFile, AFingerprintCountsFramesOfOnePhaseAndGrowsWithPhases) {
  std::string error;
  EXPECT_FALSE(fingerprint_file(m_folder.write("text.wav", "no audio"), 4, error));
  EXPECT_FALSE(error.empty());
  // A chirp: no two frames alike.
  std::vector<float> chirp;
  for (int i = 0; i < 16000; ++i) {
    chirp.push_back(static_cast<float>(0.5 * std::sin(1e-5 * i * i + 0.2 * i)));
  }
  test::write_sound(m_path, chirp, 8000, 1);
  const Fingerprint one = fingerprint_file(m_path, 1, error).value();
  const Fingerprint four = fingerprint_file(m_path, 4, error).value();
  EXPECT_EQ(one.frames, 124u);
  EXPECT_GT(four.points, one.points);
  EXPECT_EQ(four.packet.size(), 8 + 8 * four.points);
  EXPECT_DOUBLE_EQ(four.seconds, 2);
}

}  // namespace
}  // namespace cv::tools
