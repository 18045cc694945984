#include "tools/audio_file.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

#include "support/sound_folder.h"
#include "tools/fingerprint.h"

namespace {

using cv::tools::read_audio;

double rms(const std::vector<int16_t>& samples, std::size_t skip) {
  double sum = 0;
  for (std::size_t i = skip; i < samples.size() - skip; ++i)
    sum += double{1} * samples[i] * samples[i];
  return std::sqrt(sum / static_cast<double>(samples.size() - 2 * skip));
}

TEST(ReadAudio, BringsEveryRateAndNumberOfChannelsToTheSameLengthAndLevel) {
  const cv::test::TemporaryFolder folder;
  const struct {
    int rate_hz, channels, format;
  } table[] = {
      {8000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16}, {44100, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16},
      {48000, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT}, {16000, 6, SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
      {11025, 1, SF_FORMAT_AU | SF_FORMAT_PCM_16}, {8000, 1, SF_FORMAT_WAV | SF_FORMAT_ULAW}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.rate_hz);
    cv::test::write_sound(folder / "a", cv::test::sine(440, 0.5, row.rate_hz, 2, row.channels),
                          row.rate_hz, row.channels, row.format);
    std::string error;
    const auto samples = read_audio(folder / "a", error);
    ASSERT_TRUE(samples) << error;
    EXPECT_NEAR(static_cast<double>(samples->size()), 16000, 1);
    EXPECT_NEAR(rms(*samples, 400), 0.5 * 32768 / std::sqrt(2), 60);
  }
}

TEST(ReadAudio, KeepsEveryBitOfWhatNeedsNoConversion) {
  const cv::test::TemporaryFolder folder;
  std::vector<int16_t> all;
  for (int value = -32768; value <= 32767; ++value) all.push_back(static_cast<int16_t>(value));
  cv::test::write_sound(folder / "a.wav", all, 8000, 1);
  std::string error;
  const auto samples = read_audio(folder / "a.wav", error);
  EXPECT_EQ(samples, all) << error;
}

TEST(ReadAudio, AveragesChannelsAndClipsInsteadOfWrapping) {
  const cv::test::TemporaryFolder folder;
  cv::test::write_sound(folder / "mix.wav", std::vector<float>{0.5F, -0.25F, 1.0F, 0.0F}, 8000, 2,
                        SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  cv::test::write_sound(folder / "loud.wav", std::vector<float>{1.5F, -1.5F, 1.0F}, 8000, 1,
                        SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  std::string error;
  EXPECT_EQ(read_audio(folder / "mix.wav", error), (std::vector<int16_t>{4096, 16384}));
  EXPECT_EQ(read_audio(folder / "loud.wav", error), (std::vector<int16_t>{32767, -32768, 32767}));
}

TEST(ReadAudio, RefusesWhatIsNoAudioWithAReason) {
  const cv::test::TemporaryFolder folder;
  folder.write("text.wav", "this is no audio file");
  folder.write("empty.wav", "");
  for (const char* name : {"text.wav", "empty.wav", "missing.wav"}) {
    std::string error;
    EXPECT_FALSE(read_audio(folder / name, error)) << name;
    EXPECT_FALSE(error.empty()) << name;
  }
}

TEST(Fingerprint, CountsFramesOfOnePhaseAndGrowsWithPhases) {
  const cv::test::TemporaryFolder folder;
  const struct {
    double seconds;
    std::size_t frames;
  } table[] = {{255 / 8000.0, 0}, {256 / 8000.0, 1}, {383 / 8000.0, 1}, {384 / 8000.0, 2}, {1, 61}};
  for (const auto& row : table) {
    std::vector<float> samples(static_cast<std::size_t>(std::lround(row.seconds * 8000)), 0.1F);
    cv::test::write_sound(folder / "a.wav", samples, 8000, 1);
    std::string error;
    const auto result = cv::tools::fingerprint_file(folder / "a.wav", 1, error);
    ASSERT_TRUE(result) << error;
    EXPECT_EQ(result->frames, row.frames) << row.seconds;
    EXPECT_LE(result->points, row.frames);
    EXPECT_EQ(result->packet.size(), 8 + 8 * result->points);
  }
  // A chirp: no two frames alike.
  std::vector<float> chirp;
  for (int i = 0; i < 16000; ++i) {
    chirp.push_back(static_cast<float>(0.5 * std::sin(1e-5 * i * i + 0.2 * i)));
  }
  cv::test::write_sound(folder / "a.wav", chirp, 8000, 1);
  std::string error;
  const auto one = cv::tools::fingerprint_file(folder / "a.wav", 1, error);
  const auto four = cv::tools::fingerprint_file(folder / "a.wav", 4, error);
  ASSERT_TRUE(one && four) << error;
  EXPECT_GT(four->points, one->points);
  EXPECT_EQ(cv::tools::to_hex(one->packet).substr(0, 8), "47480000");
  EXPECT_DOUBLE_EQ(one->seconds, 2);
}

}  // namespace
