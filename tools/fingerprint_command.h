// corvanth fingerprint: recordings to sample packets.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/fingerprint.h"

namespace cv::tools {

struct FingerprintOptions {
  std::vector<std::string> files;
  FingerprintSettings settings{};
  std::string output{};  // where the packet's bytes go; only with one file
  bool hex = false;
  bool json = false;
};

/// What is printed about one file, with its line end: a JSON object, a line of digits or a summary;
/// nothing when the packet's bytes are all that was asked for.
std::string describe_fingerprint(const std::string& file, const Fingerprint& fingerprint,
                                 const FingerprintOptions& options);

/// Data to `out`, complaints to `err`; goes on with the next file after a failure. An exit status.
int run_fingerprint(const FingerprintOptions& options, std::ostream& out, std::ostream& err);

}  // namespace cv::tools
