// A bar on standard error while something long goes on, with an estimate of the time left; nothing at
// all when that is no terminal.
#pragma once

#include <cstddef>
#include <cstdint>
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
  const int64_t m_started_us;
  std::string m_drawn;
};

/// "label [=====>    ] 12/34, 5 s left". The estimate takes what is left for as quick as what is done,
/// which took `elapsed_s`; in the first second there is none.
std::string progress_text(const std::string& label, std::size_t done, std::size_t total,
                          double elapsed_s);

}  // namespace cv::tools
