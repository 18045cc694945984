#include "tools/listen/listen_command.h"

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <string_view>
#include <vector>

#include "core/clock.h"
#include "log/log.h"
#include "log/log_sinks.h"
#include "net/net_socket.h"
#include "tools/command_line.h"
#include "tools/number_option.h"
#include "tools/stop_signals.h"

namespace cv::tools {

namespace {

// As much of a datagram that is no report as the complaint shows.
constexpr std::size_t max_shown_bytes = 120;
constexpr std::size_t max_datagram_bytes = 65536;

/// Local wall-clock time, "14:05:09.042".
std::string time_of_day() {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto ms = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  std::snprintf(text.data() + length, text.size() - length, ".%03d", static_cast<int>(ms));
  return text.data();
}

class Listener {
 public:
  explicit Listener(ReportForm form) : m_form(form) {}

  void take(std::string_view datagram) {
    std::string error;
    const auto lines = describe_report(datagram, m_form, time_of_day(), error);
    if (!lines) {
      ++m_bad;
      std::cerr << "corvanth: a datagram that is no report (" << error
                << "): " << printable(datagram.substr(0, max_shown_bytes)) << std::endl;
      return;
    }
    ++m_reports;
    for (const std::string& line : *lines) std::cout << line << '\n';
    std::cout.flush();
  }

  uint64_t reports() const { return m_reports; }
  uint64_t bad() const { return m_bad; }

 private:
  ReportForm m_form;
  uint64_t m_reports = 0;
  uint64_t m_bad = 0;
};

}  // namespace

int run_listen(const ListenOptions& options) {
  StopSignals stop;
  log::open_stdlog();
  net::Socket socket;
  if (!socket.open(options.port, INADDR_ANY)) return exit_failed;
  std::cerr << "corvanth: listening on port " << socket.local_port() << std::endl;
  if (options.table) std::cout << report_table_heading() << std::endl;
  const int64_t end_us = options.timeout_s > 0 ? steady_clock().now_us() +
                                                     static_cast<int64_t>(options.timeout_s * 1e6)
                                               : INT64_MAX;
  const auto enough = [&](const Listener& listener) {
    return options.count != 0 && listener.reports() >= options.count;
  };
  Listener listener(options.table ? ReportForm::table : ReportForm::json_lines);
  std::vector<unsigned char> buffer(max_datagram_bytes);
  // Reports that cannot be printed are lost: better to end, and say so, than to take more of them.
  while (!enough(listener) && !stop.stopped() && steady_clock().now_us() < end_us && std::cout) {
    if (!socket.fetch()) {
      stop.wait_readable_until(socket.descriptor(), end_us);
      continue;
    }
    const std::size_t size = socket.read(buffer.data(), buffer.size());
    listener.take({reinterpret_cast<const char*>(buffer.data()), size});
  }
  std::cerr << "corvanth: " << listener.reports() << " report(s), " << listener.bad()
            << " datagram(s) that were none" << std::endl;
  const bool short_of_count = options.count != 0 && !enough(listener) && !stop.stopped();
  return short_of_count ? exit_failed : exit_done;
}

void add_listen_command(CLI::App& app, int& status) {
  auto options = std::make_shared<ListenOptions>();
  CLI::App* command =
      app.add_subcommand("listen", "Receive reports and print them, a line of JSON each");
  command->add_option("--port", options->port, "UDP port; 0 for one of the system's choice")
      ->required()
      ->check(CLI::Range(0, 65535));
  command->add_flag("--table", options->table, "print a table instead");
  command->add_option("--count", options->count, "end after so many reports")
      ->check(&whole_number_complaint);
  command
      ->add_option("--timeout", options->timeout_s,
                   "end after so many seconds; with fewer reports than --count, as a failure")
      ->check(number_between(0.0, 1e9));
  command->callback([options, &status] { status = run_listen(*options); });
}

}  // namespace cv::tools
