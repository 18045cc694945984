// What a node sees of a call: everything that its findings are made of, frame by frame.
//
// Plain data, filled by TraceRecorder while a call runs; tables and pages are made from it. Frame n covers
// the samples 128 n to 128 n + 255 of its side and stands, as in reports, for the second 0.016 n. Shifts
// are frames too: the stream frame at which a sample's frame 0 lies, negative when the call joined it
// midway.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audio/audio_segment_detector.h"
#include "media/media_packet.h"

namespace cv::tools {

inline constexpr double seconds_per_frame = 0.016;

struct FrameTrace {
  double amplitude = 0;       // against activity.sig_threshold
  double deviation = 0;       // against activity.dev_threshold
  double weighted_power = 0;  // against activity.pow_threshold
  bool active = false;
  std::optional<uint32_t> hash;  // of the point, if the frame has one
};

/// A segment as the node's detector has it. The node itself stops looking after the first of a side.
struct ActiveSpan {
  uint64_t begin_frame = 0;
  uint64_t end_frame = 0;  // one behind the last; as the detector says it, or the stream's end
};

/// A finding that was reported.
struct DetectionTrace {
  uint64_t frame = 0;  // that decided it
  uint32_t sample_id = 0;
  std::string sample_name;
  double score = 0;
  int32_t offset_frames = 0;  // the shift
  uint32_t start_frame = 0;   // of the sample: the first that agreed
  uint32_t end_frame = 0;     // one behind the last
};

/// A shift and the score that its votes, with those of the shifts next to it, had at some frame.
struct ScoredShift {
  int32_t shift = 0;
  uint32_t votes = 0;
  double score = 0;
};

/// What one point of the stream changed for one sample.
struct ScorePoint {
  uint64_t frame = 0;
  uint64_t total = 0;   // votes for the sample so far, at any shift
  uint32_t shifts = 0;  // that have votes
  /// The best that this point voted for: what the node compared with the threshold at this frame.
  ScoredShift voted;
  /// The shift with the most votes so far; the first that had them.
  ScoredShift best;
  /// The one with the most votes among those more than 8 frames from the best one: what the best has to
  /// stand out against. No votes: there is none.
  ScoredShift runner_up;
};

/// A sample on one side of the call. It has points at the frames that voted for it.
struct SampleTrack {
  uint32_t sample_id = 0;
  std::string sample_name;
  double threshold = 0;
  double nearest = 0;  // the largest of `voted.score - threshold`: 0 and more: found
  std::vector<ScorePoint> points;
};

struct SideTrace {
  bool there = false;
  std::vector<int16_t> samples;  // 8,000 a second
  std::vector<FrameTrace> frames;
  std::vector<ActiveSpan> active;
  std::optional<uint64_t> first_activity_frame;  // as reported
  std::vector<DetectionTrace> detections;        // in the order of the reports
  /// The samples that were found and those that came nearest, the nearest first; those asked for by
  /// name behind them.
  std::vector<SampleTrack> tracks;
};

struct CallTrace {
  std::string name;  // of the recording
  media::Uuid uuid{};
  uint64_t rule = 0;
  uint64_t version = 0;  // of the configuration
  uint8_t drift_frames = 0;
  audio::SegmentDetectionOptions activity;
  std::array<SideTrace, 2> sides;  // originator, terminator
};

inline const char* side_name(std::size_t side) { return side == 0 ? "originator" : "terminator"; }

}  // namespace cv::tools
