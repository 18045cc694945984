#include "tools/inspect/inspect_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <utility>

#include "tools/command_line.h"
#include "tools/fingerprint.h"

namespace cv::tools {

namespace {

/// Points of a call: one phase, all of them.
constexpr FingerprintSettings as_called = {.phases = 1, .spacing_frames = 1, .max_repeat = 0};

bool read_packets(const std::vector<std::string>& files, std::vector<NamedPacket>& packets,
                  std::ostream& err) {
  bool good = true;
  std::string error;
  for (const std::string& file : files) {
    auto read = tools::read_packets(file, error);
    if (!read) err << "corvanth: " << error << "\n";
    good = good && read;
    if (!read) continue;
    for (NamedPacket& packet : *read) packets.push_back(std::move(packet));
  }
  return good;
}

bool read_speech(const std::vector<std::string>& files, Points& speech, std::ostream& err) {
  bool good = true;
  std::string error;
  for (const std::string& file : files) {
    const auto read = fingerprint_file(file, as_called, error);
    if (!read) err << "corvanth: " << file << ": " << error << "\n";
    good = good && read;
    if (read) speech.insert(speech.end(), read->points.begin(), read->points.end());
  }
  return good;
}

Points voters_for(std::size_t index, const std::vector<NamedPacket>& packets) {
  Points voters;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    if (i == index && packets.size() > 1) continue;
    const Points stream = as_stream(packets[i].points);
    voters.insert(voters.end(), stream.begin(), stream.end());
  }
  return voters;
}

}  // namespace

Inspection inspect_packets(std::vector<NamedPacket> packets, const Points& speech,
                           const InspectOptions& options) {
  Inspection inspection;
  inspection.voters = !options.speech.empty() ? "of the speech given"
                      : packets.size() > 1    ? "of the other packets"
                                              : "of its own";
  double all_votes = 0;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    const Points& points = packets[i].points;
    InspectedPacket inspected;
    inspected.facts = packet_facts(points, options.top);
    inspected.votes_a_point =
        votes_a_point(points, options.speech.empty() ? voters_for(i, packets) : speech);
    all_votes += inspected.votes_a_point;
    inspection.packets.push_back(std::move(inspected));
  }
  for (InspectedPacket& inspected : inspection.packets) {
    inspected.share_of_votes = all_votes > 0 ? inspected.votes_a_point / all_votes : 0;
  }
  if (packets.size() == 2) {
    inspection.comparison =
        compare_packets(packets[0].points, packets[1].points, options.drift_frames);
  }
  for (std::size_t i = 0; i < packets.size(); ++i) {
    inspection.packets[i].packet = std::move(packets[i]);
  }
  return inspection;
}

int run_inspect(const InspectOptions& options, std::ostream& out, std::ostream& err) {
  std::vector<NamedPacket> packets;
  Points speech;
  const bool good = read_packets(options.files, packets, err);
  // Without it all, what the packets cost would be wrong.
  if (!read_speech(options.speech, speech, err)) return exit_failed;
  if (!packets.empty()) {
    const Inspection inspection = inspect_packets(std::move(packets), speech, options);
    out << (options.json ? inspection_json(inspection) + "\n" : inspection_text(inspection));
  }
  return good ? exit_done : exit_failed;
}

void add_inspect_command(CLI::App& app, int& status) {
  auto options = std::make_shared<InspectOptions>();
  CLI::App* command = app.add_subcommand(
      "inspect", "Show what sample packets hold and cost, and how alike two of them are");
  command
      ->add_option("PACKET", options->files,
                   "files of packets, as bytes or as lines of hexadecimal digits")
      ->required();
  command->add_option("--speech", options->speech,
                      "recordings of calls; their points show what a packet costs");
  command->add_option("--top", options->top, "how many of the commonest hashes to show")
      ->check(CLI::Range(0u, 100000u))
      ->capture_default_str();
  command->add_option("--drift", options->drift_frames, "the nodes' audio_detection_drift")
      ->check(CLI::Range(0u, 3u))
      ->capture_default_str();
  command->add_flag("--json", options->json, "print one JSON object");
  command->callback([options, &status] { status = run_inspect(*options, std::cout, std::cerr); });
}

}  // namespace cv::tools
