// A table of texts for a terminal: columns as wide as what is in them.
#pragma once

#include <string>
#include <vector>

namespace cv::tools {

struct TextColumn {
  std::string heading;
  bool number = false;  // to the right
};

/// Heading and rows, a line each; every row has a cell a column. Control characters become '?'.
std::string text_table(const std::vector<TextColumn>& columns,
                       const std::vector<std::vector<std::string>>& rows);

/// "%.*f".
std::string fixed(double value, int digits);

}  // namespace cv::tools
