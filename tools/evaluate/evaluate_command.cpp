#include "tools/evaluate/evaluate_command.h"

#include <algorithm>
#include <filesystem>
#include <fnmatch.h>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "tools/analyse/recording.h"
#include "tools/command_line.h"
#include "tools/configd/rules_edit.h"
#include "tools/evaluate/evaluate_plot.h"
#include "tools/evaluate/evaluate_text.h"
#include "tools/evaluate/threshold_choice.h"
#include "tools/log_to_standard_error.h"
#include "tools/ordered_jobs.h"
#include "tools/progress_bar.h"
#include "tools/stop_signals.h"
#include "tools/text_file.h"

namespace cv::tools {

namespace {

struct EvaluateFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

SampleSet read_samples(const EvaluateOptions& options, StopSignals& stop) {
  std::string error;
  std::vector<std::string> complaints;
  ProgressBar bar("reading samples");
  auto set = SampleSet::read(
      {options.samples, options.rules, options.rule},
      [&](std::size_t done, std::size_t total) {
        bar.update(done, total);
        if (stop.check()) throw EvaluateFailure("broken off");
      },
      complaints, error);
  for (const std::string& complaint : complaints) std::cerr << "corvanth: " << complaint << "\n";
  if (!set) throw EvaluateFailure(error);
  return std::move(*set);
}

std::vector<RecordingSource> find_background(const EvaluateOptions& options) {
  std::vector<RecordingSource> sources;
  std::string error;
  for (const std::string& path : options.background) {
    if (!find_recordings(path, 0, sources, error)) throw EvaluateFailure(error);
  }
  std::erase_if(sources, [&](const RecordingSource& source) {
    const auto matches = [&](const std::string& pattern) {
      return fnmatch(pattern.c_str(), source.name.c_str(), 0) == 0;
    };
    return std::any_of(options.background_except.begin(), options.background_except.end(), matches);
  });
  return sources;
}

/// Sites keep the same tones among the prompts of every language.
bool is_sample(const std::vector<int16_t>& audio, const SampleSet& set) {
  for (std::size_t i = 0; i < set.samples().size(); ++i) {
    if (audio == set.audio(i)) return true;
  }
  return false;
}

std::vector<std::vector<int16_t>> read_background(const EvaluateOptions& options,
                                                  const SampleSet& set, StopSignals& stop) {
  const auto sources = find_background(options);
  ProgressBar bar("reading background");
  std::vector<std::vector<int16_t>> speech;
  std::size_t done = 0;
  for (const RecordingSource& source : sources) {
    if (stop.check()) throw EvaluateFailure("broken off");
    std::string error;
    auto audio = read_audio(source.name, error);
    if (!audio) throw EvaluateFailure(source.name + ": " + error);
    if (is_sample(*audio, set)) {
      std::cerr << "corvanth: " << source.name << " is itself a sample, and no background\n";
    } else if (!audio->empty()) {
      speech.push_back(std::move(*audio));
    }
    bar.update(++done, sources.size());
  }
  return speech;
}

/// A background recording that is evaluated as it is.
EvaluatedCall background_call(const RecordingSource& source) {
  return {source.name, {EvaluatedSide{}}, [path = source.name] {
            std::string error;
            auto channels = read_channels(path, 2, error);
            if (!channels) throw EvaluateFailure(path + ": " + error);
            return std::move(*channels);
          }};
}

std::vector<EvaluatedCall> read_truth(const EvaluateOptions& options, const SampleSet& set) {
  std::string error;
  const auto text = read_file(options.truth, error);
  if (!text) throw EvaluateFailure(error);
  const auto truth = parse_truth(*text, error);
  const auto folder = std::filesystem::path(options.truth).parent_path().string();
  auto calls = truth ? labelled_calls(*truth, folder, set, error) : std::nullopt;
  if (!calls) throw EvaluateFailure(options.truth + ": " + error);
  for (const RecordingSource& source : find_background(options)) {
    calls->push_back(background_call(source));
  }
  return std::move(*calls);
}

/// With `speech`, which outlives the calls.
std::vector<EvaluatedCall> make_calls(const EvaluateOptions& options, const SampleSet& set,
                                      const std::vector<std::vector<int16_t>>& speech) {
  PlantedPlan plan;
  plan.calls = options.planted_calls;
  plan.least_s = options.planted_least_s;
  plan.most_s = options.planted_most_s;
  plan.background_call_s = options.background_call_s;
  plan.background_hours = options.background_hours;
  plan.seed = options.plan.seed;
  std::string error;
  auto calls = planted_calls(plan, set, speech, error);
  if (!calls) throw EvaluateFailure(error);
  return std::move(*calls);
}

/// By setting; settings that differ in drift only share one.
std::vector<rc_ptr<audio::HashDatabase>> make_databases(const EvaluationPlan& plan,
                                                        const SampleSet& set, StopSignals& stop) {
  using Key = std::tuple<unsigned, unsigned, unsigned, unsigned>;
  std::map<Key, rc_ptr<audio::HashDatabase>> known;
  std::vector<rc_ptr<audio::HashDatabase>> databases;
  ProgressBar bar("fingerprinting");
  for (const EvaluatedSetting& setting : plan.settings) {
    if (stop.check()) throw EvaluateFailure("broken off");
    const FingerprintSettings& fingerprint = setting.samples.fingerprint;
    auto& database = known[{fingerprint.phases, fingerprint.spacing_frames, fingerprint.max_repeat,
                            setting.samples.drop_common}];
    if (!database) database = set.make_database(setting.samples, plan.thresholds.front());
    databases.push_back(database);
    bar.update(databases.size(), plan.settings.size());
  }
  return databases;
}

EvaluationResult evaluate_calls(const EvaluateOptions& options, const SampleSet& set,
                                const std::vector<EvaluatedCall>& calls, StopSignals& stop) {
  const auto databases = make_databases(options.plan, set, stop);
  const Evaluation evaluation(options.plan, set, databases);
  EvaluationResult result(options.plan, set.samples().size());
  ProgressBar bar("evaluating calls");
  const unsigned threads = options.jobs == 0 ? processors() : options.jobs;
  OrderedJobs<CallOutcome>(calls.size(), threads)
      .run([&] { return [&](std::size_t i) { return evaluation.evaluate(calls[i], i); }; },
           [&](std::size_t i, const CallOutcome& outcome) {
             result.add(outcome);
             bar.update(i + 1, calls.size());
             return true;
           },
           [&] { return !stop.check(); });
  if (stop.stopped()) throw EvaluateFailure("broken off");
  return result;
}

void write_file(const std::string& path, const std::string& content) {
  std::string error;
  if (!path.empty() && !replace_file(path, content, error)) throw EvaluateFailure(error);
}

/// An hour's work should not end at a folder that is not there.
void check_outputs(const EvaluateOptions& options, const std::string& recommended) {
  std::string error;
  for (const std::string& path : {options.plot, options.csv, options.sample_csv, recommended}) {
    if (!path.empty() && !can_replace_file(path, error)) throw EvaluateFailure(error);
  }
}

/// Beside the rules, where --output does not say.
std::string output_path(const EvaluateOptions& options) {
  if (options.in_place) return options.rules;
  if (!options.output.empty()) return options.output;
  const std::filesystem::path rules = options.rules;
  std::string path =
      (rules.parent_path() / (rules.stem().string() + ".recommended" + rules.extension().string()));
  if (std::filesystem::exists(path)) {
    throw EvaluateFailure(path + " is there already; --output names another file");
  }
  return path;
}

constexpr char all_samples_rules[] =
    "{\n  \"rules\": [\n    {\n      \"id\": 1,\n      \"samples\": [\n        \"*\"\n      ]\n    "
    "}\n"
    "  ]\n}\n";

void recommend(const EvaluateOptions& options, const EvaluationView& view,
               const std::string& path) {
  const auto choice = choose_thresholds(view.result, 0, *options.recommend);
  if (!choice) {
    throw EvaluateFailure(
        "no thresholds keep false findings so rare; see --thresholds and --background");
  }
  Thresholds thresholds;
  for (std::size_t i = 0; i < choice->levels.size(); ++i) {
    thresholds[view.set.samples()[i].file] = view.plan.thresholds[choice->levels[i]];
  }
  std::string error;
  std::optional<std::string> text = all_samples_rules;
  if (!options.rules.empty()) text = read_file(options.rules, error);
  if (text) text = with_thresholds(*text, view.set.rule(), thresholds, error);
  if (!text) throw EvaluateFailure(error);
  write_file(path, *text);
  std::cout << "\n"
            << recommendation_text(view, *choice, *options.recommend) << "written to " << path
            << "\n";
}

}  // namespace

int run_evaluate(const EvaluateOptions& options) {
  StopSignals stop;
  const ComplaintsToStandardError log;
  try {
    const std::string recommended = options.recommend ? output_path(options) : "";
    check_outputs(options, recommended);
    const SampleSet set = read_samples(options, stop);
    std::vector<std::vector<int16_t>> speech;
    if (options.truth.empty()) speech = read_background(options, set, stop);
    const auto calls =
        options.truth.empty() ? make_calls(options, set, speech) : read_truth(options, set);
    const EvaluationResult result = evaluate_calls(options, set, calls, stop);
    const EvaluationView view{options.plan, set, result,
                              options.recommend.value_or(options.false_per_hour)};
    std::cout << evaluation_table(view);
    if (!options.plot.empty()) write_file(options.plot, evaluation_page(view));
    if (!options.csv.empty()) write_file(options.csv, evaluation_csv(view));
    if (!options.sample_csv.empty()) write_file(options.sample_csv, sample_csv(view));
    // Last: when there is nothing to recommend, these files show why.
    if (options.recommend) recommend(options, view, recommended);
    return exit_done;
  } catch (const std::runtime_error& failure) {
    std::cerr << "corvanth: " << failure.what() << "\n";
    return exit_failed;
  }
}

}  // namespace cv::tools
