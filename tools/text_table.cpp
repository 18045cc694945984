#include "tools/text_table.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/listen/report_text.h"

namespace cv::tools {

namespace {

constexpr const char* gap = "  ";

/// Columns on a terminal of plain UTF-8: continuation bytes take none.
std::size_t width_of(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::string text_table(const std::vector<TextColumn>& columns,
                       const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    widths.push_back(width_of(columns[i].heading));
    for (const auto& row : rows) widths[i] = std::max(widths[i], width_of(row[i]));
  }
  std::string text;
  const auto append = [&](const auto& cell_at) {
    std::string line;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const std::string cell = printable(cell_at(i));
      const std::string padding(widths[i] - width_of(cell), ' ');
      line += columns[i].number ? padding + cell + gap : cell + padding + gap;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  };
  append([&](std::size_t i) { return columns[i].heading; });
  for (const auto& row : rows) append([&](std::size_t i) { return row[i]; });
  return text;
}

std::string fixed(double value, int digits) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

}  // namespace cv::tools
