// Files of sample packets: the bytes themselves, or hexadecimal digits, a packet a line, as
// `corvanth fingerprint` writes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/hash_selection.h"

namespace cv::tools {

struct NamedPacket {
  std::string name;  // the file's, with ":LINE" behind it when it holds several
  Points points{};   // in the packet's order
  std::size_t size_bytes = 0;
  std::size_t unused_bytes = 0;  // behind the last point; nodes pass over them
};

/// Empty, with the reason in `error`: what is wrong, and at which byte of the packet or at which line
/// and column of the digits. What a node refuses is an error here.
std::optional<std::vector<NamedPacket>> parse_packets(const std::string& name,
                                                      std::string_view content, std::string& error);

/// As parse_packets(), of a file; `error` begins with the path.
std::optional<std::vector<NamedPacket>> read_packets(const std::string& path, std::string& error);

}  // namespace cv::tools
