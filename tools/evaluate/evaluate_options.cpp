#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "audio/audio_fingerprint.h"
#include "tools/command_line.h"
#include "tools/evaluate/evaluate_command.h"
#include "tools/number_option.h"

namespace cv::tools {

namespace {

/// "FROM:TO:STEP" in thousandths, so that 4.6 is the 4.6 of a rules file.
std::vector<double> parse_thresholds(const std::string& text) {
  double from = 0, to = 0, step = 0;
  int used = 0;
  const int fields = std::sscanf(text.c_str(), "%lf:%lf:%lf%n", &from, &to, &step, &used);
  if (fields != 3 || static_cast<std::size_t>(used) != text.size() || !(from >= 0.1) ||
      !(to >= from) || !(to <= 64) || !(step >= 0.001) || !(step <= 64)) {
    throw CLI::ValidationError("--thresholds", "must be FROM:TO:STEP, from 0.1 to 64");
  }
  std::vector<double> thresholds;
  const auto step_1000 = std::lround(step * 1000);
  for (auto i = std::lround(from * 1000); i <= std::lround(to * 1000); i += step_1000) {
    thresholds.push_back(static_cast<double>(i) / 1000);
  }
  if (thresholds.size() > 1000) throw CLI::ValidationError("--thresholds", "more than 1000");
  return thresholds;
}

std::vector<LineCondition> parse_conditions(const char* option,
                                            const std::vector<std::string>& texts) {
  std::vector<LineCondition> conditions;
  for (const std::string& text : texts) {
    std::string error;
    const auto condition = LineCondition::parse(text, error);
    if (!condition) throw CLI::ValidationError(option, error);
    conditions.push_back(*condition);
  }
  return conditions;
}

/// What is said as lists; every combination is a setting.
struct Lists {
  SampleSettings defaults{};
  std::vector<unsigned> phases = {defaults.fingerprint.phases};
  std::vector<unsigned> spacing = {defaults.fingerprint.spacing_frames};
  std::vector<unsigned> max_repeat = {defaults.fingerprint.max_repeat};
  std::vector<unsigned> drop_common = {defaults.drop_common};
  std::vector<unsigned> drift = {1};
  std::string thresholds = "3:8:0.1";
  std::vector<std::string> conditions = {"clean"};
  std::vector<std::string> background_conditions = {"clean"};
};

std::vector<EvaluatedSetting> combine(const Lists& lists) {
  std::vector<EvaluatedSetting> settings;
  for (const unsigned phases : lists.phases) {
    for (const unsigned spacing : lists.spacing) {
      for (const unsigned max_repeat : lists.max_repeat) {
        for (const unsigned drop_common : lists.drop_common) {
          for (const unsigned drift : lists.drift) {
            settings.push_back(
                {{{phases, spacing, max_repeat}, drop_common}, static_cast<uint8_t>(drift)});
          }
        }
      }
    }
  }
  return settings;
}

void check_recommend(const EvaluateOptions& options) {
  if (!options.recommend) {
    if (options.output.empty() && !options.in_place) return;
    throw CLI::ValidationError("--recommend", "is what --output and --in-place go with");
  }
  const auto fail = [](const char* reason) { throw CLI::ValidationError("--recommend", reason); };
  if (!(*options.recommend >= 0) || !std::isfinite(*options.recommend)) {
    fail("takes a number of false findings, 0 or more");
  }
  if (options.plan.settings.size() != 1) fail("takes one setting, not lists of them");
  if (options.background.empty() && options.truth.empty()) fail("needs background");
  if (options.rules.empty() && (options.in_place || options.output.empty())) {
    fail("without --rules needs --output");
  }
  std::error_code no_such_file;
  if (!options.output.empty() &&
      std::filesystem::equivalent(options.output, options.rules, no_such_file)) {
    fail("writes over the rules file with --in-place only");
  }
}

void complete(EvaluateOptions& options, const Lists& lists) {
  options.plan.settings = combine(lists);
  options.plan.thresholds = parse_thresholds(lists.thresholds);
  options.plan.conditions = parse_conditions("--conditions", lists.conditions);
  options.plan.background_conditions =
      parse_conditions("--background-conditions", lists.background_conditions);
  if (options.truth.empty() == (options.planted_calls == 0)) {
    throw CLI::ValidationError("evaluate", "takes either --truth or --plant");
  }
  check_recommend(options);
  if (options.planted_calls != 0 && options.background.empty()) {
    throw CLI::ValidationError("--plant", "needs --background to play the samples in");
  }
}

void add_setting_options(CLI::App& command, Lists& lists) {
  const auto add = [&](const char* name, std::vector<unsigned>& values, unsigned least,
                       unsigned most, const char* text) {
    command.add_option(name, values, text)
        ->delimiter(',')
        ->check(CLI::Range(least, most))
        ->capture_default_str();
  };
  add("--phases", lists.phases, 1, audio::max_fingerprint_phases, "as fingerprint's; a list");
  add("--spacing", lists.spacing, 1, 1000, "as fingerprint's; a list");
  add("--max-repeat", lists.max_repeat, 0, 1000000, "as fingerprint's; a list");
  add("--drop-common", lists.drop_common, 0, 100000, "as configd's; a list");
  add("--drift", lists.drift, 0, 3, "the node's audio_detection_drift; a list");
  command.add_option("--thresholds", lists.thresholds, "FROM:TO:STEP")->capture_default_str();
  command
      .add_option("--conditions", lists.conditions,
                  "lines that calls go over: clean, gain:DB, mulaw, alaw, gsm, noise:DB, "
                  "offset[:SAMPLES], several joined by +; a list")
      ->delimiter(',')
      ->capture_default_str();
  command
      .add_option("--background-conditions", lists.background_conditions,
                  "the same for background in which nothing is played")
      ->delimiter(',')
      ->capture_default_str();
}

void add_call_options(CLI::App& command, EvaluateOptions& options) {
  command.add_option("--samples", options.samples, "the recordings that configd serves")
      ->required()
      ->check(CLI::ExistingDirectory);
  command
      .add_option("--rules", options.rules,
                  "the rules that configd serves (default: look for every sample)")
      ->check(CLI::ExistingFile);
  command.add_option("--rule", options.rule, "rule id, when there are several")
      ->check(&whole_number_complaint);
  command
      .add_option("--truth", options.truth,
                  "what is played in which recording: lines of recording, side, sample and start")
      ->check(CLI::ExistingFile);
  command
      .add_option("--background", options.background,
                  "recordings, or folders of them, that hold no sample; may be repeated")
      ->check(CLI::ExistingPath);
  command.add_option("--background-except", options.background_except,
                     "leave out recordings whose path matches this pattern; may be repeated");
  command
      .add_option("--background-call", options.background_call_s,
                  "with --plant, seconds of a call in which nothing is played")
      ->check(number_between(1.0, 86400.0))
      ->capture_default_str();
  command
      .add_option("--background-hours", options.background_hours,
                  "with --plant, use the background again and again until it is that long")
      ->check(number_between(0.0, 10000.0))
      ->capture_default_str();
  command
      .add_option("--plant", options.planted_calls,
                  "instead of --truth, play this many samples into background speech")
      ->check(CLI::Range(1U, 1000000U));
  command.add_option("--plant-least", options.planted_least_s, "shortest sample to plant, seconds")
      ->check(number_between(0, 86400))
      ->capture_default_str();
  command.add_option("--plant-most", options.planted_most_s, "longest sample to plant, seconds")
      ->check(number_between(0, 86400))
      ->capture_default_str();
  command.add_option("--seed", options.plan.seed, "of all that is random")
      ->check(&whole_number_complaint)
      ->capture_default_str();
}

}  // namespace

void add_evaluate_command(CLI::App& app, int& status) {
  auto options = std::make_shared<EvaluateOptions>();
  auto lists = std::make_shared<Lists>();
  CLI::App* command = app.add_subcommand(
      "evaluate", "Find out what thresholds and settings find, and what they cost");
  add_call_options(*command, *options);
  add_setting_options(*command, *lists);
  command
      ->add_option("--false-per-hour", options->false_per_hour,
                   "the table is about the lowest threshold with at most that many")
      ->check(number_between(0.0, 1e9))
      ->capture_default_str();
  command->add_option("--csv", options->csv,
                      "write a line for every setting, condition and threshold");
  command->add_option(
      "--csv-samples", options->sample_csv,
      "write a line for every setting, condition and sample, at the table's threshold");
  command->add_option(
      "--plot", options->plot,
      "write a page: found against false findings an hour, a curve a setting; HTML");
  command->add_option("--jobs", options->jobs, "threads; 0 for one a processor")
      ->check(CLI::Range(0U, 1024U))
      ->capture_default_str();
  command->add_option(
      "--recommend", options->recommend,
      "write the rules with a threshold for every sample, for at most that many false "
      "findings an hour of all samples together");
  auto* output =
      command->add_option("--output", options->output,
                          "where to (default: beside the rules, as NAME.recommended.json)");
  command->add_flag("--in-place", options->in_place, "into the rules file itself")
      ->excludes(output);
  command->callback([options, lists, &status] {
    complete(*options, *lists);
    status = run_evaluate(*options);
  });
}

}  // namespace cv::tools
