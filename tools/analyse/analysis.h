// Recordings through the node's analysis, one after another: what a thread of `corvanth analyse` does.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/analyse/offline_node.h"
#include "tools/analyse/recording.h"

namespace cv::tools {

/// What the calls of a run have in common.
struct CallTerms {
  uint64_t rule = 0;
  uint8_t features = 0;
  uint64_t timestamp = 0;
  std::optional<media::Uuid> uuid;  // none: made from each recording's name
};

/// For the one who shows how far it is. Any thread.
struct AnalysisProgress {
  std::atomic<uint64_t> samples_known{0};  // of the recordings read so far
  std::atomic<uint64_t> samples_done{0};
  std::atomic<bool> stopped{false};  // everything is to end
};

struct Analysed {
  std::string error;  // why there is nothing else
  media::Uuid uuid{};
  uint64_t samples = 0;  // of the longer side
  std::vector<std::string> lines;
};

class Analysis {
 public:
  /// Borrows all but the settings.
  Analysis(const CallTerms& terms, rc_ptr<mn::Configuration> settings, const Snapshot& site,
           AnalysisProgress& progress)
      : m_terms(terms), m_progress(progress), m_node(std::move(settings), site) {}

  Analysed run(Recording recording);
  RuleInForce rule() { return m_node.rule(m_terms.rule); }

 private:
  const CallTerms& m_terms;
  AnalysisProgress& m_progress;
  OfflineNode m_node;
};

}  // namespace cv::tools
