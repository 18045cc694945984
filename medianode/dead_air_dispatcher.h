// The options of segment detection by rule, handed to the pipeline without a lock.
//
// A configuration is made aside, published through one atomic exchange, and picked up by the
// pipeline when it next asks for options.
#pragma once

#include <atomic>
#include <cstdint>
#include <unordered_map>

#include "audio/audio_segment_detector.h"
#include "core/reference_countable.h"
#include "medianode/exchanger.h"

namespace cv::mn {

/// One version of the options. Its maker fills `rules` before publishing; nobody changes it after.
class DeadAirConfig : public ReferenceCountable {
 public:
  /// `version` 0 stands for the node's own defaults.
  DeadAirConfig(uint64_t version, const audio::SegmentDetectionOptions& defaults);
  ~DeadAirConfig() override;

  static inline std::atomic<uint64_t> counter{0};

  const uint64_t m_id;  // counts constructions from 1; for log lines
  const uint64_t m_version;
  const audio::SegmentDetectionOptions m_defaults;
  std::unordered_map<uint64_t, audio::SegmentDetectionOptions> m_rules;  // by rule identifier
};

class DeadAirDispatcher {
 public:
  /// Publishes `config`, which must not be empty. Any thread.
  void on_dead_air_config(rc_ptr<DeadAirConfig> config);

  /// The options of a rule, and the version they came from; an unknown rule has the defaults of the
  /// newest configuration and version 0. Pipeline thread. The reference holds until the next call.
  const audio::SegmentDetectionOptions& get_options(uint64_t rule_id, uint64_t& version);

 private:
  void update_config_exchanger(rc_ptr<DeadAirConfig> config);

  Exchanger<DeadAirConfig> m_exchanger;
  rc_ptr<DeadAirConfig> m_current;  // pipeline thread only
};

}  // namespace cv::mn
