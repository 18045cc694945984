#include <array>
#include <cstdio>

#include "audio/audio_spectrum_generator.h"
#include "tools/audio_file.h"
#include "tools/inspect/inspect_command.h"
#include "tools/json_text.h"
#include "tools/listen/report_text.h"
#include "tools/text_table.h"

namespace cv::tools {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

std::string hash_text(uint32_t hash) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%06x", hash);
  return text.data();
}

/// Between which spectrum bins the jumps are, as the middle of each in hertz.
std::string jumps_text(uint32_t hash) {
  constexpr double bin_hz = double{audio_rate_hz} / audio::frame_window_samples;
  std::string text;
  for (const unsigned position : hash_positions(hash)) {
    if (!text.empty()) text += ", ";
    text += fixed((position + 0.5) * bin_hz, 0);
  }
  return text;
}

std::string packet_rows(const Inspection& inspection) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& [packet, facts, votes, share] : inspection.packets) {
    rows.push_back(
        {packet.name, fixed(facts.seconds, 2), std::to_string(facts.frames),
         std::to_string(facts.points), fixed(facts.points_a_frame, 2),
         std::to_string(facts.least_phases),
         facts.least_spacing_frames == 0 ? "-" : std::to_string(facts.least_spacing_frames),
         std::to_string(facts.distinct_hashes), fixed(votes, 3), fixed(100 * share, 1) + " %"});
  }
  return text_table({{"packet"},
                     {"seconds", true},
                     {"frames", true},
                     {"points", true},
                     {"a frame", true},
                     {"phases >=", true},
                     {"spacing", true},
                     {"hashes", true},
                     {"votes a point", true},
                     {"share", true}},
                    rows);
}

std::string commonest_rows(const InspectedPacket& inspected) {
  std::vector<std::vector<std::string>> rows;
  for (const HashCount& count : inspected.facts.commonest) {
    rows.push_back({hash_text(count.hash), std::to_string(count.frames),
                    fixed(100.0 * static_cast<double>(count.frames) /
                              static_cast<double>(inspected.facts.points),
                          1) +
                        " %",
                    jumps_text(count.hash)});
  }
  return text_table({{"hash"}, {"frames", true}, {"points", true}, {"strongest jumps at, Hz"}},
                    rows);
}

/// What a reader should know before trusting the rest.
std::string remarks(const InspectedPacket& inspected) {
  const auto& [packet, facts, votes, share] = inspected;
  std::string text;
  if (facts.points == 0) text += printable(packet.name) + ": no points, no node finds it\n";
  if (packet.unused_bytes != 0) {
    text += printable(packet.name) + ": byte " +
            std::to_string(packet.size_bytes - packet.unused_bytes) + ": " +
            std::to_string(packet.unused_bytes) + " bytes behind the last point are ignored\n";
  }
  if (facts.foreign_points != 0) {
    text += printable(packet.name) + ": byte " + std::to_string(8 + 8 * facts.first_foreign_point) +
            ": the first of " + std::to_string(facts.foreign_points) +
            " points that no recording gives\n";
  }
  return text;
}

std::string match_text(const std::string& call, const std::string& sample,
                       const std::optional<PeakMatch>& match) {
  const std::string what = printable(call) + " in a call, " + printable(sample) + " as sample: ";
  if (!match) return what + "no vote\n";
  return what + "score " + fixed(match->score, 2) + ", shift " + std::to_string(match->shift) +
         " frames (" + fixed(match->shift * frame_s, 3) + " s), reached after " +
         fixed((match->reached_frame + 2) * frame_s, 2) + " s\n";
}

std::string comparison_text(const Inspection& inspection) {
  const std::string& first = inspection.packets[0].packet.name;
  const std::string& second = inspection.packets[1].packet.name;
  return std::to_string(inspection.comparison->common_hashes) +
         " hashes in common; as a node scores one against the other, at best:\n" +
         match_text(second, first, inspection.comparison->second_in_first) +
         match_text(first, second, inspection.comparison->first_in_second);
}

void write_facts(Writer& writer, const InspectedPacket& inspected) {
  const auto& [packet, facts, votes, share] = inspected;
  const auto count = [&](const char* name, std::size_t value) {
    writer.Key(name);
    writer.Uint64(value);
  };
  const auto number = [&](const char* name, double value) {
    writer.Key(name);
    writer.Double(value);
  };
  writer.StartObject();
  writer.Key("packet");
  write_string(writer, packet.name);
  number("seconds", facts.seconds);
  count("frames", facts.frames);
  count("frames_with_points", facts.frames_with_points);
  count("points", facts.points);
  number("points_a_frame", facts.points_a_frame);
  count("least_phases", facts.least_phases);
  count("least_spacing_frames", facts.least_spacing_frames);
  count("distinct_hashes", facts.distinct_hashes);
  number("votes_a_point", votes);
  number("share_of_votes", share);
  count("bytes", packet.size_bytes);
  count("unused_bytes", packet.unused_bytes);
  count("foreign_points", facts.foreign_points);
  writer.Key("commonest");
  writer.StartArray();
  for (const HashCount& common : facts.commonest) {
    writer.StartObject();
    writer.Key("hash");
    writer.String(hash_text(common.hash).c_str());
    count("frames", common.frames);
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
}

void write_match(Writer& writer, const char* name, const std::optional<PeakMatch>& match) {
  writer.Key(name);
  if (!match) {
    writer.Null();
    return;
  }
  writer.StartObject();
  writer.Key("score");
  writer.Double(match->score);
  writer.Key("shift_frames");
  writer.Int(match->shift);
  writer.Key("reached_frame");
  writer.Uint(match->reached_frame);
  writer.Key("first_frame");
  writer.Uint(match->first_frame);
  writer.Key("end_frame");
  writer.Uint(match->end_frame);
  writer.EndObject();
}

}  // namespace

std::string inspection_text(const Inspection& inspection) {
  std::string text = packet_rows(inspection) + "votes a point: what a point " + inspection.voters +
                     " costs a node\n";
  for (const InspectedPacket& inspected : inspection.packets) {
    if (inspected.facts.commonest.empty()) continue;
    text += "\ncommonest hashes of " + printable(inspected.packet.name) + "\n" +
            commonest_rows(inspected);
  }
  std::string remarked;
  for (const InspectedPacket& inspected : inspection.packets) remarked += remarks(inspected);
  if (!remarked.empty()) text += "\n";
  text += remarked;
  if (inspection.comparison) {
    text += "\n";
    text += comparison_text(inspection);
  }
  return text;
}

std::string inspection_json(const Inspection& inspection) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.StartObject();
  writer.Key("votes_of");
  writer.String(inspection.voters.c_str());
  writer.Key("packets");
  writer.StartArray();
  for (const InspectedPacket& inspected : inspection.packets) write_facts(writer, inspected);
  writer.EndArray();
  if (inspection.comparison) {
    writer.Key("comparison");
    writer.StartObject();
    writer.Key("common_hashes");
    writer.Uint64(inspection.comparison->common_hashes);
    write_match(writer, "second_in_first", inspection.comparison->second_in_first);
    write_match(writer, "first_in_second", inspection.comparison->first_in_second);
    writer.EndObject();
  }
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace cv::tools
