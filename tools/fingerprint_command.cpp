#include "tools/fingerprint_command.h"

#include <CLI/CLI.hpp>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <unistd.h>

#include "audio/audio_sample_packet.h"
#include "tools/command_line.h"
#include "tools/json_text.h"
#include "tools/progress_bar.h"
#include "tools/text_file.h"

namespace cv::tools {

namespace {

std::string json_line(const std::string& file, const Fingerprint& fingerprint, bool with_hash) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  writer.Key("file");
  write_string(writer, file);
  writer.Key("seconds");
  writer.Double(fingerprint.seconds);
  writer.Key("frames");
  writer.Uint64(fingerprint.frames);
  writer.Key("points");
  writer.Uint64(fingerprint.points.size());
  if (with_hash) {
    writer.Key("hash");
    writer.String(to_hex(audio::write_sample_packet(fingerprint.points)).c_str());
  }
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

bool write_packet(const std::string& path, const Points& points, std::string& error) {
  const std::vector<unsigned char> packet = audio::write_sample_packet(points);
  return replace_file(path, {reinterpret_cast<const char*>(packet.data()), packet.size()}, error);
}

}  // namespace

std::string describe_fingerprint(const std::string& file, const Fingerprint& fingerprint,
                                 const FingerprintOptions& options) {
  if (options.json) return json_line(file, fingerprint, options.hex);
  if (options.hex) return to_hex(audio::write_sample_packet(fingerprint.points)) + "\n";
  if (!options.output.empty()) return {};
  std::ostringstream text;
  text << file << ": " << std::fixed << std::setprecision(2) << fingerprint.seconds << " s, "
       << fingerprint.frames << " frames, " << fingerprint.points.size() << " points, "
       << audio::write_sample_packet(fingerprint.points).size() << " bytes\n";
  return text.str();
}

int run_fingerprint(const FingerprintOptions& options, std::ostream& out, std::ostream& err) {
  int status = exit_done;
  const auto fail = [&](const auto&... complaint) {
    err << "corvanth: ";
    (err << ... << complaint) << "\n";
    status = exit_failed;
  };
  ProgressBar bar("fingerprinting");
  // On a terminal the lines themselves show how far it is.
  const bool with_bar = options.files.size() > 1 && ::isatty(STDOUT_FILENO) == 0;
  std::size_t done = 0;
  for (const std::string& file : options.files) {
    if (with_bar) bar.update(done++, options.files.size());
    std::string error;
    const auto fingerprint = fingerprint_file(file, options.settings, error);
    if (!fingerprint) {
      fail(file, ": ", error);
      continue;
    }
    if (fingerprint->points.empty()) {
      fail(file, ": no points, no node finds it");
    } else if (!options.output.empty() &&
               !write_packet(options.output, fingerprint->points, error)) {
      fail(error);
    }
    out << describe_fingerprint(file, *fingerprint, options);
  }
  return status;
}

void add_fingerprint_command(CLI::App& app, int& status) {
  auto options = std::make_shared<FingerprintOptions>();
  CLI::App* command = app.add_subcommand(
      "fingerprint", "Make sample packets of recordings, as a media node receives them");
  command->add_option("FILE", options->files, "recordings, in any format that libsndfile reads")
      ->required();
  command->add_option("-o,--output", options->output, "write the packet's bytes here (one FILE)");
  command->add_flag("--hex", options->hex, "print each packet as a line of hexadecimal digits");
  command->add_flag("--json", options->json,
                    "print a JSON object a file; with --hex it holds the packet as \"hash\"");
  add_fingerprint_settings(*command, options->settings);
  command->callback([options, &status] {
    if (!options->output.empty() && options->files.size() > 1) {
      throw CLI::ValidationError("--output", "takes the packet of one FILE only");
    }
    status = run_fingerprint(*options, std::cout, std::cerr);
  });
}

}  // namespace cv::tools
