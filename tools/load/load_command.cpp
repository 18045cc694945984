#include "tools/load/load_command.h"

#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <sys/socket.h>
#include <tuple>

#include "core/clock.h"
#include "net/net_socket.h"
#include "tools/audio_file.h"
#include "tools/command_line.h"
#include "tools/configd/file_watcher.h"
#include "tools/endpoint.h"
#include "tools/load/load_sender.h"
#include "tools/load/load_text.h"
#include "tools/log_to_standard_error.h"
#include "tools/number_option.h"
#include "tools/progress_bar.h"
#include "tools/stop_signals.h"

namespace cv::tools {

namespace {

// The reports of a second come when thousands of calls play the same recording.
constexpr int report_buffer_bytes = 16 << 20;
// The first packets are due this long after everything is made.
constexpr int64_t head_start_us = 200000;
// How often the bar and the stop signal are looked at when no reports come.
constexpr int64_t turn_us = 100000;
// What was reported about each takes 40 bytes until the end.
constexpr double max_calls_in_all = 10e6;
constexpr double max_script_bytes = 8e9;

constexpr double bytes_a_second = 2 * sizeof(int16_t) * audio_rate_hz;  // of both sides

using Scripts = std::vector<CallScript>;

class LoadFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

int64_t ticks(double seconds) { return std::llround(seconds * 1e6 / tick_us); }

ScriptWriter::Recordings read_background(const std::string& folder, StopSignals& stop) {
  const auto found = FileWatcher(folder, {}).look();
  if (!found.error.empty()) throw LoadFailure(found.error);
  ScriptWriter::Recordings recordings;
  ProgressBar bar("reading recordings");
  for (const std::string& file : found.changed) {
    std::string error;
    auto audio = read_audio((std::filesystem::path(folder) / file).string(), error);
    if (audio) {
      recordings.push_back(std::move(*audio));
    } else {
      std::cerr << "corvanth: " << file << ": " << error << "; left out\n";
    }
    bar.update(recordings.size(), found.changed.size());
    if (stop.check()) throw LoadFailure("broken off");
  }
  if (recordings.empty()) throw LoadFailure("there is no recording in " + folder);
  return recordings;
}

LoadRule read_rule(const LoadOptions& options, StopSignals& stop) {
  std::string error;
  ProgressBar bar("fingerprinting");
  auto rule = read_load_rule(
      {options.samples, options.rules, options.rule,
       options.state.empty() ? options.rules + ".state" : options.state, options.settings},
      [&](std::size_t done, std::size_t total) {
        bar.update(done, total);
        if (stop.check()) throw LoadFailure("broken off");
      },
      error);
  if (!rule) throw LoadFailure(error);
  return std::move(*rule);
}

Scripts write_scripts(const LoadOptions& options, const LoadPlan& plan, const LoadRule& rule,
                      StopSignals& stop) {
  const auto background = read_background(options.background, stop);
  ScriptWriter writer(background, rule, static_cast<uint8_t>(options.drift_frames), options.seed,
                      options.impairments);
  ProgressBar bar("writing calls");
  Scripts scripts;
  for (uint32_t i = 0; i < plan.scripts && !stop.check(); ++i) {
    // Spread evenly, so that any run of calls has its share.
    const bool planted = std::floor((i + 1) * options.share) > std::floor(i * options.share);
    auto script =
        planted ? writer.write_with_prompt(plan.call_blocks) : writer.write(plan.call_blocks);
    if (!script) {
      throw LoadFailure("no recording of the rule fits a call and is recognised in it");
    }
    scripts.push_back(std::move(*script));
    bar.update(scripts.size(), plan.scripts);
  }
  return scripts;
}

LoadPlan make_plan(const LoadOptions& options) {
  LoadPlan plan;
  plan.slots = options.calls;
  plan.scripts = options.scripts;
  plan.call_blocks = static_cast<uint32_t>(ticks(options.call_length_s) / block_ticks);
  plan.ramp_ticks = ticks(options.ramp_s);
  plan.end_tick = plan.ramp_ticks + ticks(options.duration_s);
  return plan;
}

/// The socket that packets leave by.
void connect_to(net::Socket& socket, const std::string& endpoint) {
  std::string error;
  const auto to = parse_endpoint(endpoint, error);
  if (!to) throw LoadFailure(error);
  if (!socket.open(0, INADDR_ANY) ||
      connect(socket.descriptor(), reinterpret_cast<const sockaddr*>(&*to), sizeof *to) != 0) {
    throw LoadFailure(endpoint + ": " + strerror(errno));
  }
}

uint32_t report_address(const LoadOptions& options, const net::Socket& media) {
  std::string error;
  if (!options.report_host.empty()) {
    const auto host = parse_endpoint(options.report_host + ":1", error);
    if (!host) throw LoadFailure(error);
    return host->sin_addr.s_addr;
  }
  sockaddr_in local{};
  socklen_t length = sizeof local;
  getsockname(media.descriptor(), reinterpret_cast<sockaddr*>(&local), &length);
  return local.sin_addr.s_addr;
}

/// One run from the first START to the last report.
class LoadRun {
 public:
  LoadRun(const LoadOptions& options, const LoadPlan& plan, const Scripts& scripts,
          StopSignals& stop)
      : m_plan(plan),
        m_stop(stop),
        m_reports(nullptr, report_buffer_bytes),
        m_run(std::random_device()()),
        m_start_us(0) {
    connect_to(m_media, options.to);
    if (!m_reports.open(0, INADDR_ANY)) throw LoadFailure("no socket for the reports");
    LoadCalls calls;
    calls.rule = options.rule;
    calls.features = all_features;
    calls.timestamp = static_cast<uint64_t>(std::time(nullptr));
    calls.run = m_run;
    calls.report_addr = report_address(options, m_media);
    calls.report_port = htons(m_reports.local_port());
    m_start_us = steady_clock().now_us() + head_start_us;
    m_judge.emplace(plan, scripts, m_run, m_start_us);
    m_sender.emplace(plan, scripts, calls, m_media.descriptor(), m_start_us);
  }

  LoadSummary run(double drain_s) {
    if (m_sender->start() != 0) throw LoadFailure("no thread for the packets");
    ProgressBar bar("calling, seconds");
    while (!m_sender->done()) {
      receive();
      if (m_stop.stopped()) m_sender->break_off();
      bar.update(static_cast<std::size_t>((steady_clock().now_us() - m_start_us) / 1000000),
                 static_cast<std::size_t>(m_plan.end_tick * tick_us / 1000000));
    }
    m_sender->stop();
    drain(drain_s);
    return summary();
  }

 private:
  void receive() {
    const int64_t end_us = steady_clock().now_us() + turn_us;
    if (!m_reports.fetch()) m_stop.wait_readable_until(m_reports.descriptor(), end_us);
    while (m_reports.fetch() && steady_clock().now_us() < end_us) {
      const std::size_t size = m_reports.read(m_buffer.data(), m_buffer.size());
      m_judge->take({reinterpret_cast<const char*>(m_buffer.data()), size},
                    steady_clock().now_us());
    }
  }

  /// Until all is there, and a little longer for what should not be.
  void drain(double drain_s) {
    const int64_t begin_us = steady_clock().now_us();
    const auto waited_s = [&] {
      return static_cast<double>(steady_clock().now_us() - begin_us) / 1e6;
    };
    while (!m_stop.stopped() && waited_s() < drain_s) {
      receive();
      if (waited_s() > 0.5 && m_judge->verdict(m_sender->end_tick()).missing == 0) break;
    }
  }

  LoadSummary summary() const {
    LoadSummary summary;
    summary.calls_at_once = m_plan.slots;
    summary.seconds = static_cast<double>(m_sender->end_tick() * tick_us) / 1e6;
    summary.packets_sent = m_sender->packets_sent();
    summary.packets_refused = m_sender->packets_refused();
    summary.packets_left_out = m_sender->packets_left_out();
    summary.packets_repeated = m_sender->packets_repeated();
    summary.latest_ms = static_cast<double>(m_sender->latest_us()) / 1000;
    summary.reports_dropped = m_reports.kernel_dropped();
    summary.verdict = m_judge->verdict(m_sender->end_tick());
    if (m_sender->error() != 0) {
      std::cerr << "corvanth: packets were refused: " << strerror(m_sender->error()) << "\n";
    }
    return summary;
  }

  const LoadPlan& m_plan;
  StopSignals& m_stop;
  net::Socket m_media;
  net::Socket m_reports;
  const uint64_t m_run;
  int64_t m_start_us;
  std::vector<unsigned char> m_buffer = std::vector<unsigned char>(65536);
  std::optional<LoadJudge> m_judge;
  std::optional<LoadSender> m_sender;
};

}  // namespace

int run_load(const LoadOptions& options) {
  StopSignals stop;
  const LogToStandardError log;
  const LoadPlan plan = make_plan(options);
  try {
    const LoadRule rule = read_rule(options, stop);
    const Scripts scripts = write_scripts(options, plan, rule, stop);
    if (stop.stopped()) return exit_failed;
    const LoadSummary summary = LoadRun(options, plan, scripts, stop).run(options.drain_s);
    std::cout << (options.json ? load_json(summary) + "\n" : load_text(summary));
    if (stop.stopped()) std::cerr << "corvanth: broken off\n";
    return summary.passed() && !stop.stopped() ? exit_done : exit_failed;
  } catch (const LoadFailure& failure) {
    std::cerr << "corvanth: " << failure.what() << "\n";
    return exit_failed;
  }
}

void add_load_command(CLI::App& app, int& status) {
  auto options = std::make_shared<LoadOptions>();
  CLI::App* command =
      app.add_subcommand("load", "Play many calls at once and judge what the node reports");
  command->add_option("FOLDER", options->background, "recordings that the calls talk about")
      ->required();
  command->add_option("--to", options->to, "the node's media port, HOST:PORT")->required();
  command->add_option("--samples", options->samples, "the recordings that configd serves")
      ->required();
  command->add_option("--rules", options->rules, "the rules that configd serves")->required();
  command->add_option("--rule", options->rule, "the rule id of the calls")
      ->required()
      ->check(&whole_number_complaint);
  command->add_option("--calls", options->calls, "two-sided calls at once")
      ->required()
      ->check(CLI::Range(1U, 100000U));
  command->add_option("--ramp", options->ramp_s, "seconds in which they start")
      ->check(number_between(0.0, 86400.0))
      ->capture_default_str();
  command->add_option("--duration", options->duration_s, "seconds with all of them")
      ->check(number_between(0.1, 2592000.0))
      ->capture_default_str();
  command
      ->add_option("--call-length", options->call_length_s,
                   "seconds; a call that ends is followed by a new one")
      ->check(number_between(1.0, 3600.0))
      ->capture_default_str();
  command->add_option("--share", options->share, "of the calls that hold a known recording")
      ->check(number_between(0.0, 1.0))
      ->capture_default_str();
  Impairments& impairments = options->impairments;
  const std::tuple<const char*, double&, const char*> shares[] = {
      {"--loss", impairments.lost, "of audio packets that are not sent"},
      {"--reorder", impairments.late, "of audio packets that are sent behind their successor"},
      {"--duplicate", impairments.twice, "of audio packets that are sent twice"},
      {"--switch", impairments.switched, "of the calls whose features are switched under way"}};
  for (const auto& [name, share, what] : shares) {
    command->add_option(name, share, std::string("share ") + what)
        ->check(number_between(0.0, 1.0))
        ->capture_default_str();
  }
  command
      ->add_option("--scripts", options->scripts,
                   "different calls; each takes 32 kB of memory a second")
      ->check(CLI::Range(1U, 10000U))
      ->capture_default_str();
  command->add_option("--state", options->state, "configd's state file (default: RULES.state)");
  add_sample_settings(*command, options->settings);
  command->add_option("--drift", options->drift_frames, "the node's audio_detection_drift")
      ->check(CLI::Range(0U, 3U))
      ->capture_default_str();
  command->add_option("--report-host", options->report_host,
                      "where the node sends reports (default: the address it is reached from)");
  command->add_option("--seed", options->seed, "of the calls' choice")
      ->check(&whole_number_complaint)
      ->capture_default_str();
  command->add_option("--drain", options->drain_s, "seconds to wait for the last reports")
      ->check(number_between(0.0, 600.0))
      ->capture_default_str();
  command->add_flag("--json", options->json, "print the verdict as JSON");
  command->callback([options, &status] {
    const Impairments& shares = options->impairments;
    if (!(shares.lost + shares.late + shares.twice <= 1)) {
      throw CLI::ValidationError("--loss",
                                 "--loss, --reorder and --duplicate are more than 1 together");
    }
    if (options->scripts * options->call_length_s * bytes_a_second > max_script_bytes) {
      throw CLI::ValidationError("--scripts", "of that length take more than 8 GB of memory");
    }
    const double rounds = (options->ramp_s + options->duration_s) / options->call_length_s + 1;
    if (rounds * options->calls > max_calls_in_all) {
      throw CLI::ValidationError("--duration", "makes more than 10 million calls in all");
    }
    status = run_load(*options);
  });
}

}  // namespace cv::tools
