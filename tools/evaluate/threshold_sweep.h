// What a node finds on one call side at every threshold of a list, from one pass over its points.
//
// The votes do not depend on the threshold, only which of them are announced does. So the node's own
// counters are asked for every vote that may reach the lowest threshold, and announcements are decided
// for each threshold apart, as the node decides them.
//
// Invariant: the findings of a level are those of a SamplesDetector whose samples have that level's
// threshold, in the same order, with the same frames, offsets and score bits.
// Threads: one at a time.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "audio/audio_samples_detector.h"
#include "audio/audio_track_match.h"
#include "audio/audio_vote_window.h"

namespace cv::tools {

class ThresholdSweep final : private audio::VoteWindow::Listener {
 public:
  struct Finding {
    uint32_t level;     // place of the threshold in the list
    uint32_t position;  // of the sample in the database
    int32_t offset;     // frame of the stream at which the sample's frame 0 lies
    uint32_t frame;     // of the stream, that decided it
    double score;
  };

  /// `thresholds` ascend, and every sample of `database` has the first of them; both outlive the sweep.
  /// `drift_frames` is the node's, 0 to 3.
  ThresholdSweep(const audio::HashDatabase& database, const std::vector<double>& thresholds,
                 uint8_t drift_frames);

  /// The stream's points by ascending frame.
  void handle_hash(audio::HashPoint point);

  /// In the order of the announcements; those of different levels are mixed.
  const std::vector<Finding>& findings() const { return m_findings; }

 private:
  void on_candidate(const audio::VoteWindow::Candidate& candidate) override;
  void on_vote_apart(const audio::HashIndexEntry& entry) override;
  void judge(uint32_t position, int32_t delta, double score);

  const audio::HashDatabase& m_database;
  const std::vector<double>& m_thresholds;
  const uint8_t m_drift_frames;
  audio::VoteWindow m_window;
  std::unordered_map<uint32_t, audio::TrackMatch> m_apart;  // by position: samples without a ring
  std::vector<audio::ReportedShifts> m_reported;            // by position, then level
  // By position and shift, how many levels are known to have it in their quiet zones. To forget it
  // costs time, never a finding.
  absl::flat_hash_map<uint64_t, uint32_t> m_levels_done;
  std::vector<Finding> m_findings;
  uint32_t m_frame = 0;
};

}  // namespace cv::tools
