#include "tools/audio_file.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

#include "support/sound_folder.h"

namespace cv::tools {
namespace {

TEST(AudioFile, EveryRateAndNumberOfChannelsComesToTheSameLengthAndLevel) {
  const test::TemporaryFolder folder;
  std::string error;
  const struct {
    int rate_hz, channels, format;
  } table[] = {{8000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16},
               {44100, 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT},
               {16000, 6, SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
               {8000, 1, SF_FORMAT_WAV | SF_FORMAT_ULAW}};
  for (const auto& [rate_hz, channels, format] : table) {
    SCOPED_TRACE(rate_hz);
    test::write_sound(folder / "a", test::sine(440, 0.5, rate_hz, 1, channels), rate_hz, channels,
                      format);
    const auto samples = read_audio(folder / "a", error).value();
    EXPECT_NEAR(static_cast<double>(samples.size()), 8000, 1);
    double power = 0;
    for (std::size_t i = 400; i < 7600; ++i) power += double{1} * samples.at(i) * samples.at(i);
    EXPECT_NEAR(std::sqrt(power / 7200), 0.5 * 32768 / std::sqrt(2), 60);
  }
  EXPECT_FALSE(read_audio(folder.write("text.wav", "no audio"), error));
  test::write_sound(folder / "slow", std::vector<int16_t>(100), 1, 1);
  EXPECT_FALSE(read_audio(folder / "slow", error)) << "would be 100 s long";
  EXPECT_FALSE(error.empty());
}

TEST(AudioFile, AnInterruptedCopyIsRefused) {
  const test::TemporaryFolder folder;
  test::write_sound(folder / "a.wav", std::vector<int16_t>(8000, 1), 8000, 1);
  std::ifstream file(folder / "a.wav", std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(file), {}};
  constexpr std::size_t header_bytes = 44;
  ASSERT_EQ(whole.size(), header_bytes + 16000);
  const struct {
    const char* what;
    uint32_t named_bytes;
    std::size_t there_bytes;
    bool taken;
  } table[] = {{"whole", 16000, 16000, true},
               {"cut in the middle", 16000, 8192, false},
               {"cut in front of the audio", 16000, 0, false},
               {"a writer that counted its header, too", 16044, 16000, true},
               {"streamed", 0xFFFFFFFF, 16000, true},
               {"streamed, with a size that is a signed number", 0x7FFFF000, 16000, true}};
  for (const auto& [what, named_bytes, there_bytes, taken] : table) {
    SCOPED_TRACE(what);
    std::string bytes = whole.substr(0, header_bytes + there_bytes);
    for (std::size_t i = 0; i < 4; ++i) bytes[40 + i] = static_cast<char>(named_bytes >> 8 * i);
    std::string error;
    const auto samples = read_audio(folder.write("b.wav", bytes), error);
    EXPECT_EQ(samples.has_value(), taken) << error;
    EXPECT_EQ(samples.value_or(std::vector<int16_t>()).size(), taken ? there_bytes / 2 : 0);
    EXPECT_EQ(error.find("the audio ends early") != error.npos, !taken);
  }
}

TEST(AudioFile, ChannelsApartKeepTheirBits) {
  const test::TemporaryFolder folder;
  std::string error;
  AudioChannels channels(2);
  std::vector<int16_t> frames;
  for (int value = -32768; value <= 32767; ++value) {
    for (std::size_t i = 0; i < 2; ++i) {
      channels[i].push_back(static_cast<int16_t>(i == 0 ? value : -1 - value));
      frames.push_back(channels[i].back());
    }
  }
  test::write_sound(folder / "a", frames, 8000, 2);
  EXPECT_EQ(read_channels(folder / "a", 2, error), channels);
  EXPECT_FALSE(read_channels(folder / "a", 1, error));
  EXPECT_NE(error.find("it has 2 channels"), error.npos);
  // What no 16 bits can hold; rounding is to the nearest.
  const float step = 1.0F / 32768;
  test::write_sound(folder / "b", std::vector<float>{2, -2, NAN, 1.4F * step, 2.5F * step, -step},
                    8000, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  EXPECT_EQ(read_audio(folder / "b", error),
            (std::vector<int16_t>{32767, -32768, -32768, 1, 2, -1}));
}

}  // namespace
}  // namespace cv::tools
