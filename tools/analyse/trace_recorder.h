// Records what a node sees of a call while the call runs through it.
//
// Frames come from the node's own pipeline, findings from its reports. What the node does not keep is
// made from the frames by its own parts: the point of each by the hash generator, the segments of the
// whole call by a segment detector, the votes by SampleVotes. One thread; one call at a time.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "audio/audio_hash_generator.h"
#include "medianode/media_listeners.h"
#include "medianode/report.h"
#include "tools/analyse/call_trace.h"
#include "tools/analyse/offline_node.h"
#include "tools/analyse/recording.h"
#include "tools/analyse/sample_votes.h"

namespace cv::tools {

struct TraceSettings {
  /// How many samples of each side have a track at most, beside those that were found.
  std::size_t tracks = 8;
  /// Samples that have one in any case, as reports name them.
  std::vector<std::string> names;
};

class TraceRecorder final : public mn::SpectrumGeneratorListener,
                            private audio::HashGeneratorCallback,
                            private audio::SegmentDetectorCallback {
 public:
  /// `rule` is that of all calls; `drift_frames` and `matching` are the node's: whether it looks for
  /// samples at all.
  TraceRecorder(TraceSettings settings, const RuleInForce& rule, uint8_t drift_frames,
                bool matching);

  void begin(const Recording& recording, const media::Uuid& uuid, uint64_t rule_id);
  void on_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<mn::MediaSession> session,
                         const audio::SpectrumFrame& frame) override;
  void on_report(const mn::Report& report);
  /// Everything since begin().
  CallTrace end();

 private:
  void on_hash_data(audio::HashPoint point, void* user) override;
  void on_segment_data(const audio::Segment& segment, void* user) override;
  void add_tracks(std::size_t side);

  const TraceSettings m_settings;
  const RuleInForce m_rule;
  const uint8_t m_drift_frames;
  std::vector<SampleVotes> m_samples;  // none when nothing is matched
  CallTrace m_trace;
  std::array<audio::SegmentDetector, 2> m_segments;
  std::array<std::vector<audio::HashPoint>, 2> m_points;
};

}  // namespace cv::tools
