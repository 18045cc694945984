#include "tools/progress_bar.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace cv::tools {

namespace {

constexpr std::size_t bar_width = 40;

}  // namespace

std::string progress_text(const std::string& label, std::size_t done, std::size_t total) {
  const std::size_t filled = total == 0 ? bar_width : std::min(done, total) * bar_width / total;
  std::string bar(filled, '=');
  if (filled < bar_width) bar += '>';
  bar.resize(bar_width, ' ');
  return label + " [" + bar + "] " + std::to_string(done) + "/" + std::to_string(total);
}

ProgressBar::ProgressBar(std::string label)
    : m_label(std::move(label)), m_enabled(::isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
  // Carriage return, then "erase to the end of the line".
  if (!m_drawn.empty()) std::fputs("\r\033[K", stderr);
}

void ProgressBar::update(std::size_t done, std::size_t total) {
  if (!m_enabled) return;
  std::string text = progress_text(m_label, done, total);
  if (text == m_drawn) return;
  std::fprintf(stderr, "\r%s\033[K", text.c_str());
  m_drawn = std::move(text);
}

}  // namespace cv::tools
