#include "support/recordings.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace cv::test {

namespace {

const std::filesystem::path prompts_folder = "/usr/share/asterisk/sounds";

template <typename T>
T value_at(const std::string& bytes, std::size_t position) {
  if (position + sizeof(T) > bytes.size()) throw std::runtime_error("WAV file is cut short");
  T value;
  std::memcpy(&value, bytes.data() + position, sizeof value);
  return value;
}

void check_format(const std::string& bytes, std::size_t chunk, const std::string& path) {
  const bool plain = value_at<uint16_t>(bytes, chunk) == 1 &&      // PCM
                     value_at<uint16_t>(bytes, chunk + 2) == 1 &&  // one channel
                     value_at<uint32_t>(bytes, chunk + 4) == 8000 &&
                     value_at<uint16_t>(bytes, chunk + 14) == 16;
  if (!plain) throw std::runtime_error(path + ": not 8 kHz, mono, 16 bits");
}

}  // namespace

std::vector<int16_t> read_wav(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  if (bytes.compare(0, 4, "RIFF") != 0) throw std::runtime_error(path + ": not a WAV file");
  for (std::size_t chunk = 12; chunk + 8 <= bytes.size();) {
    const std::size_t size = value_at<uint32_t>(bytes, chunk + 4);
    const std::size_t content = chunk + 8;
    if (bytes.compare(chunk, 4, "fmt ") == 0) check_format(bytes, content, path);
    if (bytes.compare(chunk, 4, "data") == 0) {
      std::vector<int16_t> samples(std::min(size, bytes.size() - content) / 2);
      std::memcpy(samples.data(), bytes.data() + content, samples.size() * 2);
      return samples;
    }
    chunk = content + size + size % 2;
  }
  throw std::runtime_error(path + ": no audio");
}

namespace {

std::vector<Recording> prompts_in(const std::filesystem::path& folder, const std::string& package,
                                  std::size_t least_samples) {
  if (!std::filesystem::is_directory(folder)) {
    throw std::runtime_error("the package " + package + " is not installed");
  }
  std::vector<Recording> prompts;
  for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
    if (file.path().extension() != ".wav") continue;
    Recording prompt{file.path().lexically_relative(folder).replace_extension().string(),
                     read_wav(file.path().string())};
    if (prompt.samples.size() >= least_samples) prompts.push_back(std::move(prompt));
  }
  std::sort(prompts.begin(), prompts.end(),
            [](const Recording& a, const Recording& b) { return a.name < b.name; });
  return prompts;
}

}  // namespace

std::vector<Recording> english_prompts(std::size_t least_samples) {
  return prompts_in(prompts_folder / "en_US_f_Allison", "asterisk-core-sounds-en-wav",
                    least_samples);
}

std::vector<Recording> french_prompts(std::size_t least_samples) {
  return prompts_in(prompts_folder / "fr_CA_f_June", "asterisk-core-sounds-fr-wav", least_samples);
}

}  // namespace cv::test
