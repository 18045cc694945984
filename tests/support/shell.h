// What a shell command prints, for tests that need a script of the project.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>

namespace cv::test {

/// Without the line feeds at its end. Throws when the command fails.
inline std::string printed_by(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string text;
  for (int character = 0; (character = fgetc(pipe)) != EOF;) text += static_cast<char>(character);
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + command);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace cv::test
