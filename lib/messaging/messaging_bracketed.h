// A list as the log shows it: "[a], [b]".
#pragma once

#include <sstream>
#include <string>

namespace cv::messaging {

/// `print` writes one item to the stream it is given.
template <typename Items, typename Print>
std::string bracketed(const Items& items, Print print) {
  std::ostringstream text;
  const char* separator = "";
  for (const auto& item : items) {
    text << separator << '[';
    print(text, item);
    text << ']';
    separator = ", ";
  }
  return text.str();
}

}  // namespace cv::messaging
