// The command's options: what they are called, what they may be.

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <utility>

#include "tools/analyse/analyse_command.h"
#include "tools/command_line.h"
#include "tools/play/play_command.h"

namespace cv::tools {

namespace {

void check(const AnalyseOptions& options) {
  if (feature_bits(options.features) == 0) {
    throw CLI::ValidationError("--features", "none leaves nothing to analyse");
  }
  const bool from_capture = !options.capture.empty();
  if (from_capture != options.recordings.empty()) {
    throw CLI::ValidationError("RECORDING", "either these are needed, or --pcap");
  }
  if (!options.list) {
    for (const auto& [name, given] : {std::pair("--samples", !options.samples.empty()),
                                      std::pair("--rules", !options.rules.empty()),
                                      std::pair("--rule", options.rule.has_value())}) {
      if (!given) throw CLI::ValidationError(name, "is needed");
    }
  }
  if (options.pair && options.recordings.size() != 2) {
    throw CLI::ValidationError("--pair", "takes two RECORDINGs");
  }
}

void add_capture_options(CLI::App& command, AnalyseOptions& options) {
  auto* capture = command.add_option(
      "--pcap", options.capture, "instead: a capture of packets, a call of RTP with G.711 in it");
  command.add_flag("--list", options.list, "print the streams of the capture, and nothing else")
      ->needs(capture);
  command
      .add_option(
          "--originator", options.originator,
          "the originator's stream: as --list shows it, or its source's address, or its SSRC")
      ->needs(capture);
  command.add_option("--terminator", options.terminator, "the terminator's stream")->needs(capture);
}

}  // namespace

void add_analyse_command(CLI::App& app, int& status) {
  auto options = std::make_shared<AnalyseOptions>();
  CLI::App* command =
      app.add_subcommand("analyse", "Print what a node would report about recordings");
  command->add_option(
      "RECORDING", options->recordings,
      "files of one channel, or of two (originator, terminator), and folders of them");
  add_capture_options(*command, *options);
  command->add_flag(
      "--pair", options->pair,
      "two RECORDINGs of one channel are the originator and the terminator of a call");
  command->add_option("--side", options->mono_side, "whose the channel is of a recording with one")
      ->check(CLI::IsMember({"originator", "terminator"}))
      ->capture_default_str();
  command->add_option("--samples", options->samples, "the recordings that configd serves");
  command->add_option("--rules", options->rules, "the rules that configd serves");
  command->add_option("--rule", options->rule, "the rule id of the calls")
      ->check(&whole_number_complaint);
  command->add_option("--state", options->state, "configd's state file (default: RULES.state)");
  add_sample_settings(*command, options->settings);
  command
      ->add_option("--features", options->features,
                   "samples, activity, activity-originator, activity-terminator")
      ->delimiter(',')
      ->check(&feature_complaint)
      ->allow_extra_args(false)  // what follows is a RECORDING
      ->capture_default_str();
  command->add_option("--config", options->config_file,
                      "the node's settings file (default: the node's defaults)");
  command->add_option("--args", options->args, "settings on top of it, as the node's --args");
  command
      ->add_option("--uuid", options->uuid,
                   "session_uuid of the one RECORDING (default: made from its name)")
      ->check(&uuid_complaint);
  command->add_option("--timestamp", options->timestamp, "session_timestamp of the calls")
      ->check(&whole_number_complaint)
      ->capture_default_str();
  command
      ->add_option("--config-version", options->config_version,
                   "version of the configuration (default: the state file's, or 1)")
      ->check(&whole_number_complaint);
  command->add_option("--index", options->index,
                      "write a line for each recording: uuid, name, seconds, number of reports");
  command->add_option("--csv", options->csv, "write what the node sees of every frame");
  command->add_option("--csv-scores", options->csv_scores,
                      "write the scores of samples, point by point");
  command->add_option("--plot", options->plot,
                      "write a page that shows the one RECORDING, or call of the capture");
  command
      ->add_option("--tracks", options->trace.tracks,
                   "for these: samples of each side that came nearest, beside those found")
      ->check(CLI::Range(0U, 100000U))
      ->capture_default_str();
  command
      ->add_option("--track", options->trace.names, "for these: a sample by its name, in any case")
      ->allow_extra_args(false);
  command->add_option("--jobs", options->jobs, "threads; 0 for one a processor")
      ->check(CLI::Range(0U, 1024U))
      ->capture_default_str();
  command->callback([options, &status] {
    check(*options);
    status = run_analyse(*options);
  });
}

}  // namespace cv::tools
