// A command of the tool, run in this process as from a shell.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/command_line.h"

namespace cv::test {

struct CommandRun {
  int status = 0;
  std::string out;
  std::string err;

  bool says(const std::string& part) const { return err.find(part) != err.npos; }
  bool prints(const std::string& part) const { return out.find(part) != out.npos; }
};

/// With what it prints going where this process prints; the exit status.
inline int run_printing(const std::vector<std::string>& arguments) {
  std::vector<const char*> argv = {"corvanth"};
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  return tools::run_command_line(static_cast<int>(argv.size()), argv.data());
}

inline CommandRun run_command(std::vector<std::string> arguments,
                              const std::vector<std::string>& more = {}) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  CommandRun run;
  run.status = run_printing(arguments);
  run.out = testing::internal::GetCapturedStdout();
  run.err = testing::internal::GetCapturedStderr();
  return run;
}

}  // namespace cv::test
