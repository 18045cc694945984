#include "support/recordings.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sndfile.h>
#include <stdexcept>

namespace cv::test {

namespace {

std::vector<int16_t> read_prompt(const std::string& path) {
  SF_INFO info{};
  const std::unique_ptr<SNDFILE, decltype(&sf_close)> file(sf_open(path.c_str(), SFM_READ, &info),
                                                           &sf_close);
  if (file == nullptr || info.samplerate != 8000 || info.channels != 1) {
    throw std::runtime_error(path + ": not 8 kHz, mono");
  }
  std::vector<int16_t> samples(static_cast<std::size_t>(info.frames));
  samples.resize(static_cast<std::size_t>(sf_read_short(file.get(), samples.data(), info.frames)));
  return samples;
}

std::vector<Recording> prompts_in(const std::string& speaker, std::size_t least_samples) {
  const auto folder = std::filesystem::path("/usr/share/asterisk/sounds") / speaker;
  std::vector<Recording> prompts;
  for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
    if (file.path().extension() != ".wav") continue;
    Recording prompt{file.path().lexically_relative(folder).replace_extension().string(),
                     read_prompt(file.path().string())};
    if (prompt.samples.size() >= least_samples) prompts.push_back(std::move(prompt));
  }
  std::sort(prompts.begin(), prompts.end(),
            [](const Recording& a, const Recording& b) { return a.name < b.name; });
  return prompts;
}

}  // namespace

std::vector<Recording> english_prompts(std::size_t least_samples) {
  return prompts_in("en_US_f_Allison", least_samples);
}

std::vector<Recording> french_prompts(std::size_t least_samples) {
  return prompts_in("fr_CA_f_June", least_samples);
}

}  // namespace cv::test
