#include "tools/analyse/analyse_command.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "core/clock.h"
#include "tools/analyse/analysis.h"
#include "tools/analyse/call_page.h"
#include "tools/analyse/capture.h"
#include "tools/analyse/trace_csv.h"
#include "tools/audio_file.h"
#include "tools/command_line.h"
#include "tools/log_to_standard_error.h"
#include "tools/ordered_jobs.h"
#include "tools/play/play_command.h"
#include "tools/progress_bar.h"
#include "tools/stop_signals.h"
#include "utils/utils_str.h"

namespace cv::tools {

namespace {

class AnalyseFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The node's own reading of its settings; a refusal is on standard error already.
rc_ptr<mn::Configuration> read_settings(const AnalyseOptions& options) {
  rc_ptr<mn::Configuration> settings(new mn::Configuration);
  const bool read = (options.config_file.empty() || settings->parse_file(options.config_file)) &&
                    (options.args.empty() || settings->parse_args(options.args));
  if (!read) throw AnalyseFailure("the node's settings are refused");
  return settings;
}

Snapshot read_site(const AnalyseOptions& options, StopSignals& stop) {
  std::string error;
  auto state =
      StateFile::open(options.state.empty() ? options.rules + ".state" : options.state, 1, error);
  if (!state) throw AnalyseFailure(error);
  state->keep_in_memory();
  Site site({options.samples, options.rules, options.settings.drop_common}, std::move(*state),
            fingerprint_reader(options.samples, options.settings.fingerprint));
  ProgressBar bar("fingerprinting");
  const auto progress = [&](std::size_t done, std::size_t total) {
    bar.update(done, total);
    if (stop.check()) throw AnalyseFailure("broken off");
  };
  if (!site.start(progress, error)) throw AnalyseFailure(error);
  Snapshot snapshot = site.snapshot();
  if (options.config_version) snapshot.sample_version = *options.config_version;
  return snapshot;
}

Capture open_capture(const AnalyseOptions& options) {
  std::string error;
  auto capture = read_capture(options.capture, error);
  if (!capture) throw AnalyseFailure(error);
  const std::string faults = capture_faults(*capture);
  if (!faults.empty()) std::cerr << "corvanth: " << options.capture << ": " << faults << "\n";
  return std::move(*capture);
}

int list_streams(const AnalyseOptions& options) {
  const Capture capture = open_capture(options);
  std::cout << capture_table(capture);
  if (!capture.streams.empty()) return exit_done;
  std::cerr << "corvanth: " << options.capture << ": there is no RTP stream among its "
            << capture.frames << " packets\n";
  return exit_failed;
}

RecordingSource find_call(const AnalyseOptions& options) {
  std::string error;
  const auto streams =
      choose_streams(open_capture(options), {options.originator, options.terminator}, error);
  if (!streams) throw AnalyseFailure(options.capture + ": " + error);
  return call_source(options.capture, *streams);
}

std::vector<RecordingSource> find_sources(const AnalyseOptions& options, int& status) {
  if (!options.capture.empty()) return {find_call(options)};
  if (options.pair) return {file_source(options.recordings, 0)};
  const std::size_t mono_side = options.mono_side == "terminator" ? 1 : 0;
  std::vector<RecordingSource> sources;
  for (const std::string& path : options.recordings) {
    std::string error;
    if (find_recordings(path, mono_side, sources, error)) continue;
    std::cerr << "corvanth: " << error << "\n";
    status = exit_failed;
  }
  return sources;
}

CallTerms make_terms(const AnalyseOptions& options) {
  CallTerms terms;
  terms.rule = options.rule.value();
  terms.features = feature_bits(options.features).value();
  terms.timestamp = options.timestamp;
  if (!options.uuid.empty()) terms.uuid = parse_uuid(options.uuid);
  return terms;
}

/// A file that is written from front to end; without a path, nothing.
class OutputFile {
 public:
  explicit OutputFile(std::string path) : m_path(std::move(path)) {}

  bool wanted() const { return !m_path.empty(); }
  /// What is there stays until begin().
  void open() {
    if (!wanted()) return;
    m_file.open(m_path, std::ios::binary | std::ios::app);
    if (!m_file) throw AnalyseFailure(m_path + ": cannot be written");
  }
  void begin(const std::string& heading) {
    if (!wanted()) return;
    std::error_code no_file;  // a device or a pipe
    std::filesystem::resize_file(m_path, 0, no_file);
    m_file << heading;
  }
  void write(const std::string& text) {
    if (wanted()) m_file << text;
  }
  void close() {
    if (wanted() && !m_file.flush()) throw AnalyseFailure(m_path + ": cannot be written");
  }

 private:
  const std::string m_path;
  std::ofstream m_file;
};

bool has_sample(const audio::HashDatabase& database, const std::string& name) {
  for (uint32_t position = 0; position < database.sample_count(); ++position) {
    if (database.sample_at(position).metadata->name == name) return true;
  }
  return false;
}

/// What a thread hands over: texts, so that little is left for the one that writes.
struct Result {
  Analysed analysed;  // without its trace
  std::vector<std::string> notes;
  std::string frames;
  std::string scores;
  std::string page;
};

/// Takes what the threads found, in order.
class AnalyseRun {
 public:
  AnalyseRun(const AnalyseOptions& options, std::vector<RecordingSource> sources)
      : m_options(options),
        m_terms(make_terms(options)),
        m_sources(std::move(sources)),
        m_index(options.index),
        m_frames(options.csv),
        m_scores(options.csv_scores),
        m_page(options.plot) {}

  int run(const rc_ptr<mn::Configuration>& settings, const Snapshot& site, StopSignals& stop) {
    const auto make_analysis = [&] {
      auto analysis = std::make_shared<Analysis>(m_terms, settings, site, m_progress);
      if (traces_wanted()) analysis->trace(m_options.trace);
      return analysis;
    };
    auto first = make_analysis();
    if (!rule_is_known(*first) || !tracks_are_known(*first)) return exit_failed;
    open_outputs();
    std::mutex first_lock;
    OrderedJobs<Result> jobs(m_sources.size(), m_options.jobs == 0 ? processors() : m_options.jobs);
    const auto make_worker = [&] {
      std::shared_ptr<Analysis> analysis;
      {
        const std::lock_guard lock(first_lock);
        analysis = std::exchange(first, nullptr);
      }
      if (!analysis) analysis = make_analysis();
      return [this, analysis](std::size_t job) { return analyse(*analysis, m_sources[job]); };
    };
    const int64_t start_us = steady_clock().now_us();
    const std::clock_t start_clock = std::clock();
    ProgressBar bar(m_sources.size() == 1 ? "analysing, seconds" : "analysing");
    jobs.run(
        make_worker,
        [&](std::size_t job, const Result& result) { return take(m_sources[job], result); },
        [&] {
          show(bar);
          if (stop.check()) m_progress.stopped = true;
          return !m_progress.stopped;
        });
    for (OutputFile* file : {&m_index, &m_frames, &m_scores, &m_page}) file->close();
    print_summary(static_cast<double>(steady_clock().now_us() - start_us) / 1e6,
                  static_cast<double>(std::clock() - start_clock) / CLOCKS_PER_SEC, jobs.threads());
    return m_progress.stopped ? exit_failed : m_status;
  }

 private:
  /// As late as it can be, and all or none: what an earlier run has written there is gone then.
  void open_outputs() {
    for (OutputFile* file : {&m_index, &m_frames, &m_scores, &m_page}) file->open();
    m_index.begin({});
    m_frames.begin(frames_csv_heading());
    m_scores.begin(scores_csv_heading());
    m_page.begin({});
  }

  bool traces_wanted() const { return m_frames.wanted() || m_scores.wanted() || m_page.wanted(); }

  /// A rule that is not there would make everything look missed.
  bool rule_is_known(Analysis& analysis) const {
    if ((m_terms.features & media::features_sample_detection) == 0) return true;
    const RuleInForce rule = analysis.rule();
    if (rule.database && !rule.database->empty()) return true;
    std::cerr << "corvanth: rule " << m_terms.rule << " finds no recording in " << m_options.samples
              << "\n";
    return false;
  }

  bool tracks_are_known(Analysis& analysis) const {
    const RuleInForce rule = analysis.rule();
    for (const std::string& name : m_options.trace.names) {
      if (rule.database && has_sample(*rule.database, name)) continue;
      std::cerr << "corvanth: --track: rule " << m_terms.rule << " has no sample named " << name
                << "\n";
      return false;
    }
    return true;
  }

  Result analyse(Analysis& analysis, const RecordingSource& source) const {
    Result result;
    auto recording = source.read(result.analysed.error);
    if (!recording) return result;
    result.notes = std::move(recording->notes);
    result.analysed = analysis.run(std::move(*recording));
    if (const auto trace = std::exchange(result.analysed.trace, std::nullopt)) {
      if (m_frames.wanted()) result.frames = frames_csv(*trace);
      if (m_scores.wanted()) result.scores = scores_csv(*trace);
      if (m_page.wanted()) result.page = call_page(*trace);
    }
    return result;
  }

  bool take(const RecordingSource& source, const Result& result) {
    const Analysed& analysed = result.analysed;
    ++m_taken;
    if (!analysed.error.empty()) {
      std::cerr << "corvanth: " << analysed.error << "\n";
      m_status = exit_failed;
      return true;
    }
    for (const std::string& note : result.notes) std::cerr << "corvanth: " << note << "\n";
    m_samples += analysed.samples;
    m_lines += analysed.lines.size();
    for (const std::string& line : analysed.lines) std::cout << line << '\n';
    std::ostringstream entry;
    entry << utils::str::print_uuid(analysed.uuid.data()) << '\t' << source.name << '\t'
          << seconds(analysed.samples) << '\t' << analysed.lines.size() << '\n';
    m_index.write(std::move(entry).str());
    m_frames.write(result.frames);
    m_scores.write(result.scores);
    m_page.write(result.page);
    return static_cast<bool>(std::cout);
  }

  void show(ProgressBar& bar) const {
    if (m_sources.size() == 1) {
      bar.update(m_progress.samples_done / audio_rate_hz, m_progress.samples_known / audio_rate_hz);
    } else {
      bar.update(m_taken, m_sources.size());
    }
  }

  static double seconds(uint64_t samples) { return static_cast<double>(samples) / audio_rate_hz; }

  /// A machine that is busy with something else shows in the first factor only.
  void print_summary(double elapsed_s, double processor_s, unsigned threads) const {
    const double audio_s = seconds(m_samples);
    std::cerr << std::fixed << std::setprecision(2)
              << "corvanth: " << (m_progress.stopped ? "broken off: " : "") << m_taken
              << " recording(s), " << m_lines << " report(s), " << audio_s << " s of audio in "
              << elapsed_s << " s on " << threads << " thread(s), " << std::setprecision(0)
              << audio_s / elapsed_s << " times real time; " << audio_s / processor_s
              << " times for a processor\n";
  }

  const AnalyseOptions& m_options;
  const CallTerms m_terms;
  const std::vector<RecordingSource> m_sources;
  OutputFile m_index;
  OutputFile m_frames;
  OutputFile m_scores;
  OutputFile m_page;
  AnalysisProgress m_progress;
  std::size_t m_taken = 0;
  uint64_t m_samples = 0;
  uint64_t m_lines = 0;
  int m_status = exit_done;
};

}  // namespace

int run_analyse(const AnalyseOptions& options) {
  StopSignals stop;
  const ComplaintsToStandardError log;
  try {
    if (options.list) return list_streams(options);
    int status = exit_done;
    const rc_ptr<mn::Configuration> settings = read_settings(options);
    auto sources = find_sources(options, status);
    if (sources.empty()) return exit_failed;
    for (const auto& [name, given] :
         {std::pair("--uuid", !options.uuid.empty()), std::pair("--plot", !options.plot.empty())}) {
      if (!given || sources.size() == 1) continue;
      throw AnalyseFailure(std::string("one ") + name + " for " + std::to_string(sources.size()) +
                           " recordings");
    }
    const Snapshot site = read_site(options, stop);
    return std::max(status, AnalyseRun(options, std::move(sources)).run(settings, site, stop));
  } catch (const AnalyseFailure& failure) {
    std::cerr << "corvanth: " << failure.what() << "\n";
    return exit_failed;
  }
}

}  // namespace cv::tools
