// The truth that findings are judged by: which sample is played in which recording, on which side, from
// which second on. docs/evaluate.md describes the file for its writers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cv::tools {

enum class TruthSide { originator, terminator, every };

/// One line of the file.
struct TruthLine {
  std::size_t line = 0;   // counted from 1
  std::string recording;  // its path, without "./" and the like
  TruthSide side = TruthSide::every;
  std::string sample;  // as reports name it; empty: this side holds none
  double start_s = 0;
};

/// Lines end with \n or \r\n; empty ones, those that begin with '#', and the heading are passed over.
/// Empty, with "line L: ..." in `error`, when one is wrong: every line has a side and a sample, or says
/// that there is none, no side is said both to hold samples and to hold none, and no line says what an
/// earlier one says. A byte order mark in front is passed over.
std::optional<std::vector<TruthLine>> parse_truth(std::string_view text, std::string& error);

}  // namespace cv::tools
