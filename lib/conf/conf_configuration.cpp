#include "conf/conf_configuration.h"

#include <fstream>
#include <vector>

#include "log/log.h"
#include "utils/utils_str.h"

namespace cv::conf {

namespace str = utils::str;

int Configuration::set_flag(const std::string&, std::stringstream&) { return unknown; }

int Configuration::set_value(const std::string&, const std::string&, std::stringstream&) {
  return unknown;
}

/// The end of a refusal's message: what the code, or the setter itself, tells about it.
static std::string refusal_reason(int result, const char* format_text,
                                  const std::stringstream& error) {
  if (result == bad_format) return std::string(": ") + format_text;
  if (result == refused) return ": " + error.str();
  return {};
}

bool Configuration::parse_option(const std::string& name) {
  std::stringstream error;
  const int result = set_flag(name, error);
  if (result == applied) {
    CV_LOG(SystemMessage) << "CONFIGURATION: flag [" << name << "] applied";
  } else if (result == unknown) {
    CV_LOG(WarningMessage) << "CONFIGURATION: flag [" << name << "] is unknown";
  } else {
    CV_LOG(ErrorMessage) << "CONFIGURATION: failed to apply flag [" << name << "]"
                         << refusal_reason(result, "unexpected format", error);
    return false;
  }
  return true;
}

bool Configuration::parse_option(const std::string& name, const std::string& value) {
  std::stringstream error;
  const int result = set_value(name, value, error);
  if (result == applied) {
    CV_LOG(SystemMessage) << "CONFIGURATION: option [" << name << "] is set to [" << value << "]";
  } else if (result == unknown) {
    CV_LOG(WarningMessage) << "CONFIGURATION: option [" << name << "] is unknown";
  } else {
    CV_LOG(ErrorMessage) << "CONFIGURATION: failed to set option [" << name << "] to [" << value
                         << "]" << refusal_reason(result, "unexpected value format", error);
    return false;
  }
  return true;
}

bool Configuration::parse_pieces(const std::vector<std::string>& pieces) {
  const std::string name = str::trim_right(pieces[0]);
  const std::string value = pieces.size() == 2 ? str::trim_left(pieces[1]) : std::string();
  return value.empty() ? parse_option(name) : parse_option(name, value);
}

bool Configuration::parse_line(const std::string& line, unsigned long index) {
  const std::string text = str::trim(line);
  if (text.empty() || text.front() == '#') return true;
  std::vector<std::string> pieces;
  str::split(text, '=', pieces, false);
  if (pieces.empty() || pieces.size() > 2) {
    CV_LOG(ErrorMessage) << "CONFIGURATION: incorrect option format at line " << index << ": \""
                         << line << "\"";
    return false;
  }
  return parse_pieces(pieces);
}

bool Configuration::parse_file(const std::string& path) {
  if (path.empty()) {
    CV_LOG(InfoMessage) << "CONFIGURATION: file is not specified, default values are used";
    return true;
  }
  std::ifstream file(path);
  if (!file) {
    CV_LOG(ErrorMessage) << "CONFIGURATION: failed to open file [" << path << "]";
    return false;
  }
  CV_LOG(SystemMessage) << "CONFIGURATION: reading from file [" << path << "]";
  std::string line;
  for (unsigned long index = 0; std::getline(file, line); ++index) {
    if (!parse_line(line, index)) return false;
  }
  // A directory opens like a file and fails here: it must not pass for an empty configuration.
  if (file.bad()) {
    CV_LOG(ErrorMessage) << "CONFIGURATION: failed to read file [" << path << "]";
    return false;
  }
  return true;
}

bool Configuration::parse_args(const std::string& args) {
  CV_LOG(SystemMessage) << "CONFIGURATION: reading from args: " << args;
  // A doubled comma is part of a value, so it hides from the split behind another text.
  std::vector<std::string> options;
  str::split(str::replace(args, ",,", "_;"), ',', options, false);
  for (std::size_t i = 0; i < options.size(); ++i) {
    std::vector<std::string> pieces;
    str::split(str::replace(options[i], "_;", ","), '=', pieces, true);
    if (pieces.empty() || pieces.size() > 2) {
      CV_LOG(ErrorMessage) << "CONFIGURATION: incorrect option format at position [" << i + 1
                           << "]";
      return false;
    }
    if (!parse_pieces(pieces)) return false;
  }
  return true;
}

}  // namespace cv::conf
