// Recorded speech for tests and benchmarks: the telephone prompts of the Debian packages
// asterisk-core-sounds-en-wav and asterisk-core-sounds-fr-wav, 8,000 samples a second, 16 bits, one
// channel. Different speakers say different texts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cv::test {

struct Recording {
  std::string name;
  std::vector<int16_t> samples;
};

/// All prompts that have at least `least_samples`, by name; throws when the package is not installed.
std::vector<Recording> english_prompts(std::size_t least_samples = 0);
std::vector<Recording> french_prompts(std::size_t least_samples = 0);

}  // namespace cv::test
