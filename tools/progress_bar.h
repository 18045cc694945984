// A bar on standard error while something long goes on; nothing at all when that is no terminal.
#pragma once

#include <cstddef>
#include <string>

namespace cv::tools {

class ProgressBar {
 public:
  explicit ProgressBar(std::string label);
  /// Wipes the bar.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Draws when the picture would change.
  void update(std::size_t done, std::size_t total);

 private:
  const std::string m_label;
  const bool m_enabled;
  std::string m_drawn;
};

/// "label [=====>    ] 12/34".
std::string progress_text(const std::string& label, std::size_t done, std::size_t total);

}  // namespace cv::tools
