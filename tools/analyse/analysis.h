// Recordings through the node's analysis, one after another: what a thread of `corvanth analyse` does.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/analyse/offline_node.h"
#include "tools/analyse/recording.h"
#include "tools/analyse/trace_recorder.h"

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
  std::optional<CallTrace> trace;  // when one was asked for
};

class Analysis {
 public:
  /// Borrows all but the settings.
  Analysis(const CallTerms& terms, const rc_ptr<mn::Configuration>& settings, const Snapshot& site,
           AnalysisProgress& progress)
      : m_terms(terms), m_settings(settings), m_progress(progress), m_node(settings, site) {}

  /// From now on calls are traced; before the first.
  void trace(const TraceSettings& settings);

  Analysed run(Recording recording);
  RuleInForce rule() { return m_node.rule(m_terms.rule); }

 private:
  const CallTerms& m_terms;
  const rc_ptr<mn::Configuration> m_settings;
  AnalysisProgress& m_progress;
  OfflineNode m_node;
  std::optional<TraceRecorder> m_recorder;
};

}  // namespace cv::tools
