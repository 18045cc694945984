#include "tools/configd/sample_thinning.h"

#include <set>
#include <string_view>
#include <utility>

#include "audio/audio_sample_packet.h"
#include "tools/configd/configuration.h"
#include "tools/hash_selection.h"

namespace cv::tools {

namespace {

Points points_of(std::string_view bytes) {
  audio::SamplePacket packet;
  audio::SamplePacket::parse(bytes.data(), bytes.size(), packet);
  return packet.points();
}

std::vector<Points> served_samples(const Packets& packets, const Rules& rules) {
  std::set<std::string_view> served;
  for (const std::string& file : served_recordings(rules, packets)) {
    served.insert(bytes_of(packets.at(file)));
  }
  std::vector<Points> samples;
  samples.reserve(served.size());
  for (const std::string_view packet : served) samples.push_back(points_of(packet));
  return samples;
}

}  // namespace

ThinnedSamples thin_samples(const Packets& packets, const Rules& rules, unsigned drop_common,
                            StateFile& state) {
  std::vector<uint32_t> hashes;
  if (drop_common != 0) {
    hashes =
        choose_common_hashes(served_samples(packets, rules), drop_common, state.dropped_hashes());
  }
  state.set_dropped_hashes(hashes);
  ThinnedSamples out{packets, {}};
  if (hashes.empty()) return out;
  for (auto& [file, packet] : out.packets) {
    const Points all = points_of(bytes_of(packet));
    const Points left = drop_hashes(all, hashes);
    if (2 * left.size() >= all.size()) {
      packet = audio::write_sample_packet(left);
    } else {
      out.complaints.push_back("recording [" + file +
                               "] keeps the commonest hashes: without them " +
                               std::to_string(left.size()) + " of its " +
                               std::to_string(all.size()) + " points would be left");
    }
  }
  return out;
}

}  // namespace cv::tools
