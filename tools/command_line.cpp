#include "tools/command_line.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <unistd.h>

#include "app/app_build_version.h"

namespace cv::tools {

namespace {

/// A standard descriptor that came closed would be the next output file's, and what is printed would go
/// into that. For reading only: printing still fails, and is noticed.
void fill_standard_descriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // The lowest free one is taken: this one, for those below are in use by now.
    if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY) < 0) return;
  }
}

}  // namespace

std::string whole_number_complaint(const std::string& text) {
  uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  const bool padded = text.size() > 1 && text.front() == '0';
  if (error == std::errc() && stop == end && !padded) return {};
  return "Value " + text + " is no whole number of at most 18446744073709551615";
}

int run_command_line(int argc, const char* const* argv) {
  fill_standard_descriptors();
  CLI::App app("The operator's tool of the call-audio media node.", "corvanth");
  app.set_version_flag("--version", std::string("corvanth ") + CORVANTH_VERSION + " (" +
                                        app::build_identifier() + ")");
  app.require_subcommand(1);
  int status = exit_done;
  add_fingerprint_command(app, status);
  add_inspect_command(app, status);
  add_lint_command(app, status);
  add_configd_command(app, status);
  add_play_command(app, status);
  add_listen_command(app, status);
  add_load_command(app, status);
  add_analyse_command(app, status);
  add_evaluate_command(app, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version are ParseErrors of code 0.
    status = app.exit(error) == 0 ? exit_done : exit_usage;
  } catch (const std::exception& error) {
    std::cerr << "corvanth: " << error.what() << "\n";
    return exit_failed;
  }
  // Data that could not be written is no success.
  if (!std::cout.flush() && status == exit_done) {
    std::cerr << "corvanth: standard output cannot be written\n";
    status = exit_failed;
  }
  return status;
}

}  // namespace cv::tools
