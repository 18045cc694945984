// The root of every configuration: reads names and values from a file and from one argument string
// and hands them to the virtual setters of the classes derived from it.
//
// Life: made with its defaults, filled on the start-up thread, then shared through rc_ptr and only
// read. Every setting applied is logged at the SYSTEM level, so a log tells what a node ran with.
// Failure: an unknown name is a warning; a refused value or a malformed line is an ERROR line and
// ends that parse with false, leaving what was applied before in force.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "core/reference_countable.h"

namespace cv::conf {

inline const std::string default_conf_ext = ".conf";
inline const std::string default_base_directory = "/etc/tarnwell";
inline const std::string default_directory = default_base_directory + "/corvanth";
inline const std::string default_kafka_config_path =
    default_directory + "/kafka" + default_conf_ext;

/// What a setter answers. Other negative values mean refused without a reason.
enum set_result : int {
  applied = 0,
  unknown = 1,
  bad_format = -1,  // recognised, but the value has the wrong form
  refused = -255    // recognised and refused; the reason has been written to `error`
};

class Configuration : public ReferenceCountable {
 public:
  Configuration() = default;
  Configuration(const Configuration&) = delete;
  Configuration& operator=(const Configuration&) = delete;

  /// Applies a name that came without a value; a set_result.
  virtual int set_flag(const std::string& name, std::stringstream& error);
  /// Applies a value to a name; a set_result. A derived class tests its own names first and returns
  /// its base's answer for every other. It does not log: the parser does.
  virtual int set_value(const std::string& name, const std::string& value,
                        std::stringstream& error);

  /// Lines of "name = value", "name", or "# comment". An empty path means the defaults.
  bool parse_file(const std::string& path);
  /// "name=value,name,name=value"; a comma inside a value is written twice.
  bool parse_args(const std::string& args);
  /// One line of a file; `index` counts from 0 and serves the message only.
  bool parse_line(const std::string& line, unsigned long index);
  bool parse_option(const std::string& name);
  bool parse_option(const std::string& name, const std::string& value);

 private:
  bool parse_pieces(const std::vector<std::string>& pieces);
};

}  // namespace cv::conf
