// The command line of the operator's tool.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace cv::tools {

/// Exit statuses: what a script can rely on.
inline constexpr int exit_done = 0;
inline constexpr int exit_failed = 1;
inline constexpr int exit_usage = 2;

/// For options of 64 bits: empty, or what is wrong with `text`. The parser of options would let "-1" and
/// what is too large wrap around, and take "010" for 8.
std::string whole_number_complaint(const std::string& text);

/// Runs the named command; returns the exit status of the process.
int run_command_line(int argc, const char* const* argv);

/// Each adds one command whose run sets `status`; what is found wrong with its arguments only then
/// throws CLI::ValidationError.
void add_fingerprint_command(CLI::App& app, int& status);
void add_inspect_command(CLI::App& app, int& status);
void add_lint_command(CLI::App& app, int& status);
void add_configd_command(CLI::App& app, int& status);
void add_play_command(CLI::App& app, int& status);
void add_listen_command(CLI::App& app, int& status);
void add_load_command(CLI::App& app, int& status);
void add_analyse_command(CLI::App& app, int& status);
void add_evaluate_command(CLI::App& app, int& status);

}  // namespace cv::tools
