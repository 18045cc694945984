#include "tools/lint/lint_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <tuple>
#include <utility>

#include "tools/command_line.h"
#include "tools/lint/confusion_checks.h"
#include "tools/lint/rule_checks.h"
#include "tools/progress_bar.h"
#include "tools/text_file.h"

namespace cv::tools {

namespace {

void append(std::vector<LintFinding>& to, std::vector<LintFinding> from) {
  std::move(from.begin(), from.end(), std::back_inserter(to));
}

std::vector<LintFinding> check_recordings(const LintSite& site) {
  std::vector<LintFinding> findings;
  for (const auto& [name, recording] : site.recordings) {
    if (!recording.unusable.empty()) {
      findings.push_back(
          {.kind = lint_kind::unusable, .recording = name, .text = recording.unusable});
      continue;
    }
    append(findings, check_recording(name, recording.facts, recording.rate_hz));
  }
  return findings;
}

bool read_recommended(const std::string& path, std::optional<RecommendedThresholds>& recommended,
                      std::string& error) {
  if (path.empty()) return true;
  const auto text = read_file(path, error);
  if (!text) return false;
  recommended = parse_recommended(*text, error);
  if (!recommended) error = path + ": " + error;
  return recommended.has_value();
}

}  // namespace

std::optional<LintResult> lint(const LintOptions& options, std::string& error) {
  std::optional<RecommendedThresholds> recommended;
  if (!read_recommended(options.recommended, recommended, error)) return std::nullopt;
  ProgressBar bar("reading recordings");
  const auto progress = [&bar](std::size_t done, std::size_t total) { bar.update(done, total); };
  const auto site = read_lint_site(options, progress, error);
  if (!site) return std::nullopt;
  LintResult result;
  result.recordings = site->recordings.size();
  result.rules = site->rules.rules.size();
  append(result.findings, check_recordings(*site));
  append(result.findings, check_rules(*site));
  append(result.findings, check_thresholds(*site, options, recommended));
  ProgressBar trying("trying each on all others");
  append(result.findings, check_confusions(*site, options.drift_frames,
                                           [&trying](std::size_t done, std::size_t total) {
                                             trying.update(done, total);
                                           }));
  std::erase_if(result.findings, [&](const LintFinding& finding) {
    return std::find(options.ignored.begin(), options.ignored.end(), finding.kind) !=
           options.ignored.end();
  });
  std::stable_sort(result.findings.begin(), result.findings.end(),
                   [](const LintFinding& a, const LintFinding& b) {
                     return std::tie(a.recording, a.kind) < std::tie(b.recording, b.kind);
                   });
  return result;
}

int run_lint(const LintOptions& options, std::ostream& out, std::ostream& err) {
  std::string error;
  const auto result = lint(options, error);
  if (!result) {
    err << "corvanth: " << error << "\n";
    return exit_failed;
  }
  out << (options.json ? lint_json(*result) + "\n" : lint_text(*result));
  return result->findings.empty() ? exit_done : exit_failed;
}

void add_lint_command(CLI::App& app, int& status) {
  auto options = std::make_shared<LintOptions>();
  CLI::App* command =
      app.add_subcommand("lint", "Say what is wrong with a site's recordings and rules");
  command->add_option("--samples", options->samples, "the recordings that configd serves")
      ->required()
      ->check(CLI::ExistingDirectory);
  command->add_option("--rules", options->rules, "the rules that configd serves")
      ->required()
      ->check(CLI::ExistingFile);
  command->add_option("--state", options->state, "configd's state file (default: RULES.state)");
  command->add_option("--recommended", options->recommended,
                      "rules file or list of least thresholds (default: a rule of thumb)");
  add_sample_settings(*command, options->settings);
  command->add_option("--drift", options->drift_frames, "the nodes' audio_detection_drift")
      ->check(CLI::Range(0u, 3u))
      ->capture_default_str();
  command
      ->add_option("--ignore", options->ignored, "a kind of finding to pass over; may be repeated")
      ->check(
          CLI::IsMember(std::vector<std::string>(lint_kind::all.begin(), lint_kind::all.end())));
  command->add_flag("--json", options->json, "print one JSON object");
  command->callback([options, &status] { status = run_lint(*options, std::cout, std::cerr); });
}

}  // namespace cv::tools
