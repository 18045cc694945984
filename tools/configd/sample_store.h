// The recordings of the sample directory, fingerprinted.
//
// A recording that cannot be read keeps the fingerprint it had: it may be half copied, and a node
// that loses a prompt over that finds nothing all night. One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/fingerprint.h"

namespace cv::tools {

class SampleStore {
 public:
  /// A recording's name (below the directory, '/' between folders) to its packet; empty, with the
  /// reason in `error`, when there is none.
  using ReadPacket =
      std::function<std::vector<unsigned char>(const std::string& name, std::string& error)>;

  explicit SampleStore(ReadPacket read) : m_read(std::move(read)) {}

  /// Reads a new or changed recording. False, with a log line naming it, when it gives no usable
  /// fingerprint: nothing to recognise in it, or too long for one message.
  bool load(const std::string& name);
  void remove(const std::string& name) { m_packets.erase(name); }

  const std::map<std::string, std::vector<unsigned char>>& packets() const { return m_packets; }

 private:
  ReadPacket m_read;
  std::map<std::string, std::vector<unsigned char>> m_packets;
};

/// Why a recording's packet cannot be served; empty when it can.
std::string packet_complaint(const std::string& name, const std::vector<unsigned char>& packet);

/// Reads below `directory`.
SampleStore::ReadPacket fingerprint_reader(const std::string& directory,
                                           const FingerprintSettings& settings);

}  // namespace cv::tools
