// What an option that is a number with a fraction may be.
#pragma once

#include <CLI/CLI.hpp>
#include <cmath>
#include <string>

namespace cv::tools {

/// Takes least to most, both included. CLI::Range alone takes "nan", too, which is neither below nor
/// above anything, and every later comparison with it is false.
inline CLI::Validator number_between(double least, double most) {
  const CLI::Range range(least, most);
  const auto complaint = [range](std::string& text) {
    const std::string outside = range(text);
    double value = 0;
    const bool is_number = CLI::detail::lexical_cast(text, value) && !std::isnan(value);
    return outside.empty() && !is_number ? "Value " + text + " is no number" : outside;
  };
  return {complaint, range.get_description()};
}

}  // namespace cv::tools
