// The node's findings about a call, and their JSON text.
//
// Invariants:
// 1. A report is made on the pipeline's thread, never changes once pushed, and is serialised by the
//    report manager's thread alone, which is also the only writer of the counters.
// 2. The text is one line, its bytes fixed: member order, separators, number format. It depends
//    neither on the stream's settings nor on any locale.
// 3. Names and event objects are written as they came, without escaping.
#pragma once

#include <cstdint>
#include <ostream>

#include "audio/audio_samples_detector.h"
#include "core/reference_countable.h"
#include "media/media_session.h"
#include "medianode/configuration.h"
#include "medianode/media_session.h"
#include "medianode/report_statistic.h"
#include "net/net_hosts.h"

namespace cv::mn {

class Report : public ReferenceCountable {
 public:
  /// Goes to the session's report address. An empty session makes a report that is only counted.
  explicit Report(rc_ptr<MediaSession> session);

  /// Appends the whole text, and counts it; does neither when there is nothing to say.
  virtual void serialize(std::ostream& out, ReportManagerStatistic& statistic) const;
  /// Whether reports of this kind may be sent at all.
  virtual bool transfer_enabled(const Configuration& configuration) const;
  /// Appends the members that every report of this family has, without braces.
  virtual std::ostream& serialize(std::ostream& out) const;

  const rc_ptr<media::Session> m_session;
  const net::HostAddr m_destination;  // port 0: the call has no report address
};

class AudioDetectionReport : public Report {
 public:
  AudioDetectionReport(rc_ptr<MediaSession> session, uint64_t version);

  using Report::serialize;
  bool transfer_enabled(const Configuration& configuration) const override;
  std::ostream& serialize(std::ostream& out) const override;

  const uint64_t m_version;  // of the sample configuration that the call is matched against
};

/// A sample recognised on one call side, told at once.
class AudioDetectorStreamReport : public AudioDetectionReport {
 public:
  AudioDetectorStreamReport(rc_ptr<MediaSession> session, uint64_t version, audio::Match match,
                            uint16_t side);

  using AudioDetectionReport::serialize;
  void serialize(std::ostream& out, ReportManagerStatistic& statistic) const override;

  const audio::Match m_match;
  const uint16_t m_side;  // 0 originator, else terminator
};

/// The best match of every sample recognised during a call, told at its end. Without any it writes
/// nothing.
class AudioDetectorSessionReport : public AudioDetectionReport {
 public:
  /// The detectors (null for a side without a stream) belong to the session's streams, which the
  /// report keeps alive; the call has ended, so nobody votes with them any more.
  AudioDetectorSessionReport(rc_ptr<MediaSession> session, uint64_t version,
                             const audio::SamplesDetector* originator_detector,
                             const audio::SamplesDetector* terminator_detector);

  using AudioDetectionReport::serialize;
  void serialize(std::ostream& out, ReportManagerStatistic& statistic) const override;

  const audio::SamplesDetector* const m_originator_detector;
  const audio::SamplesDetector* const m_terminator_detector;
};

/// The first activity on one call side.
class AudioActivityReport : public Report {
 public:
  AudioActivityReport(rc_ptr<MediaSession> session, uint64_t offset_frames, uint16_t side);

  using Report::serialize;
  void serialize(std::ostream& out, ReportManagerStatistic& statistic) const override;
  bool transfer_enabled(const Configuration& configuration) const override;

  const uint64_t m_offset;  // frames
  const uint16_t m_side;    // 0 originator, else terminator
};

}  // namespace cv::mn
