// corvanth inspect: what sample packets hold, what they cost, and how alike two of them are.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/inspect/packet_facts.h"
#include "tools/inspect/packet_file.h"

namespace cv::tools {

struct InspectOptions {
  std::vector<std::string> files;
  std::vector<std::string> speech;  // recordings whose points vote; empty: the packets' own
  std::size_t top = 5;              // of the commonest hashes
  unsigned drift_frames = 1;
  bool json = false;
};

struct InspectedPacket {
  NamedPacket packet;
  PacketFacts facts;
  double votes_a_point = 0;
  double share_of_votes = 0;  // of all packets' together, 0 to 1
};

struct Inspection {
  std::vector<InspectedPacket> packets;
  std::string voters;                          // whose points vote, for the reader
  std::optional<PacketComparison> comparison;  // of two packets
};

/// `speech` are the points of recordings as calls give them; when there are none, each packet is voted
/// for by the other ones, and a single one by itself.
Inspection inspect_packets(std::vector<NamedPacket> packets, const Points& speech,
                           const InspectOptions& options);

std::string inspection_text(const Inspection& inspection);
std::string inspection_json(const Inspection& inspection);

/// An exit status.
int run_inspect(const InspectOptions& options, std::ostream& out, std::ostream& err);

}  // namespace cv::tools
