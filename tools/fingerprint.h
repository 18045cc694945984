// A recording file to the sample packet that stands for it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace cv::tools {

/// A call never starts a recording on the hop it was fingerprinted on. Four phases find 92 % of what
/// is there in heavy noise where one finds 69 %; eight find no more, at half as much again in size.
inline constexpr unsigned default_phases = 4;

struct Fingerprint {
  std::vector<unsigned char> packet;
  std::size_t points = 0;
  std::size_t frames = 0;  // of one phase
  double seconds = 0;
};

/// `phases` is 1 to 128. Empty, with the reason in `error`, when the file cannot be read.
std::optional<Fingerprint> fingerprint_file(const std::string& path, unsigned phases,
                                            std::string& error);

/// Two lower-case digits a byte.
std::string to_hex(const std::vector<unsigned char>& bytes);

}  // namespace cv::tools
