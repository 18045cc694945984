#include "tools/progress_bar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unistd.h>
#include <utility>

#include "core/clock.h"

namespace cv::tools {

namespace {

constexpr std::size_t bar_width = 40;

std::string time_left(double seconds) {
  const auto whole = static_cast<int64_t>(std::ceil(seconds));
  if (whole < 120) return std::to_string(whole) + " s left";
  if (whole < 7200) return std::to_string(whole / 60) + " min left";
  return std::to_string(whole / 3600) + " h left";
}

}  // namespace

std::string progress_text(const std::string& label, std::size_t done, std::size_t total,
                          double elapsed_s) {
  const std::size_t filled = total == 0 ? bar_width : std::min(done, total) * bar_width / total;
  std::string bar(filled, '=');
  if (filled < bar_width) bar += '>';
  bar.resize(bar_width, ' ');
  std::string text = label + " [" + bar + "] " + std::to_string(done) + "/" + std::to_string(total);
  if (done == 0 || done >= total || elapsed_s < 1) return text;
  const double left = static_cast<double>(total - done) / static_cast<double>(done);
  return text + ", " + time_left(elapsed_s * left);
}

ProgressBar::ProgressBar(std::string label)
    : m_label(std::move(label)),
      m_enabled(::isatty(STDERR_FILENO) == 1),
      m_started_us(steady_clock().now_us()) {}

ProgressBar::~ProgressBar() {
  // Carriage return, then "erase to the end of the line".
  if (!m_drawn.empty()) std::fputs("\r\033[K", stderr);
}

void ProgressBar::update(std::size_t done, std::size_t total) {
  if (!m_enabled) return;
  std::string text = progress_text(
      m_label, done, total, static_cast<double>(steady_clock().now_us() - m_started_us) / 1e6);
  if (text == m_drawn) return;
  std::fprintf(stderr, "\r%s\033[K", text.c_str());
  m_drawn = std::move(text);
}

}  // namespace cv::tools
