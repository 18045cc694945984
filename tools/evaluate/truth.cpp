#include "tools/evaluate/truth.h"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

namespace cv::tools {

namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

std::optional<TruthSide> side_of(std::string_view text) {
  if (text == "originator") return TruthSide::originator;
  if (text == "terminator") return TruthSide::terminator;
  if (text == "-") return TruthSide::every;
  return std::nullopt;
}

bool read_start(std::string_view text, double& start_s) {
  const char* const end = text.data() + text.size();
  const auto [rest, status] = std::from_chars(text.data(), end, start_s);
  return status == std::errc() && rest == end && std::isfinite(start_s) && start_s >= 0;
}

/// Empty when all is well, else what is wrong.
std::string read_line(const std::vector<std::string_view>& fields, TruthLine& out) {
  if (fields.size() < 3 || fields.size() > 4) {
    return "3 or 4 fields with tabs between them are needed (recording, side, sample, start), "
           "not " +
           std::to_string(fields.size());
  }
  if (fields[0].empty()) return "the recording is missing";
  out.recording = std::filesystem::path(fields[0]).lexically_normal().string();
  const auto side = side_of(fields[1]);
  if (!side) {
    return "the side must be originator, terminator or -, not \"" + std::string(fields[1]) + "\"";
  }
  out.side = *side;
  const std::string_view start = fields.size() == 4 ? fields[3] : std::string_view();
  if (fields[2].empty()) return "the sample is missing; \"-\" says that the side holds none";
  if (fields[2] == "-") {
    return start.empty() || start == "-" ? "" : "a side without a sample has no start";
  }
  if (out.side == TruthSide::every)
    return "a sample is played on one side: originator or terminator";
  out.sample = fields[2];
  if (read_start(start, out.start_s)) return "";
  return "the start must be a number of seconds, 0 or more, not \"" + std::string(start) + "\"";
}

/// What earlier lines said about one side of a recording.
struct SideSaid {
  bool none = false;
  std::set<std::pair<std::string, double>> plays;  // sample and start
};

/// Empty when `line` agrees with the lines before it and adds to them, else what is wrong.
std::string contradiction(const TruthLine& line,
                          std::map<std::pair<std::string, int>, SideSaid>& said) {
  for (const TruthSide side : {TruthSide::originator, TruthSide::terminator}) {
    if (line.side != side && line.side != TruthSide::every) continue;
    SideSaid& known = said[{line.recording, static_cast<int>(side)}];
    if (known.none || (line.sample.empty() && !known.plays.empty())) {
      return "an earlier line says something else about this side of the recording";
    }
    known.none = line.sample.empty();
    if (!known.none && !known.plays.emplace(line.sample, line.start_s).second) {
      return "an earlier line says the same: it would count twice";
    }
  }
  return {};
}

}  // namespace

std::optional<std::vector<TruthLine>> parse_truth(std::string_view text, std::string& error) {
  std::vector<TruthLine> truth;
  std::map<std::pair<std::string, int>, SideSaid> said;
  std::size_t number = 0;
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  for (std::string_view line : split(text, '\n')) {
    ++number;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#' || line.starts_with("recording\tside\t")) continue;
    TruthLine read;
    read.line = number;
    std::string wrong = read_line(split(line, '\t'), read);
    if (wrong.empty()) wrong = contradiction(read, said);
    if (!wrong.empty()) {
      error = "line " + std::to_string(number) + ": " + wrong;
      return std::nullopt;
    }
    truth.push_back(std::move(read));
  }
  if (truth.empty()) {
    error = "there is no recording in it";
    return std::nullopt;
  }
  return truth;
}

}  // namespace cv::tools
