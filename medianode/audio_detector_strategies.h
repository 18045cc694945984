// What happens to the frames of a call that is matched against known samples, and at its end.
//
// A strategy is shared by all calls and holds nothing of any; a call's state is in the handlers,
// which its session and streams carry.
// Threads: the packet reader's.
#pragma once

#include <cstdint>
#include <utility>

#include "audio/audio_hash_database.h"
#include "audio/audio_hash_generator.h"
#include "audio/audio_samples_detector.h"
#include "medianode/media_listeners.h"
#include "medianode/report.h"
#include "medianode/report_manager.h"
#include "medianode/stream_context.h"

namespace cv::mn {

class IAudioDetectorStrategy {
 public:
  /// The call has ended: terminated or timed out.
  virtual void handle_terminated(rc_ptr<MediaSession> session) = 0;
  virtual void handle_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                                     const audio::SpectrumFrame& frame) = 0;

 protected:
  ~IAudioDetectorStrategy() = default;
};

/// Per call.
struct AudioDetectorSessionHandler {
  IAudioDetectorStrategy* m_strategy = nullptr;  // not owned; never null once the call is seen
  rc_ptr<audio::HashDatabase> m_database;        // of the call's rule, empty until found
  uint64_t m_version = 0;                        // of the configuration the database belongs to
};

/// Per call side.
struct AudioDetectorStreamHandler {
  audio::HashGenerator m_hash_generator;
  audio::SamplesDetector m_detector;
};

/// A call without matching.
class AudioDetectorDummyStrategy final : public IAudioDetectorStrategy {
 public:
  void handle_terminated(rc_ptr<MediaSession>) override {}
  void handle_spectrum_frame(rc_ptr<media::Stream>, rc_ptr<MediaSession>,
                             const audio::SpectrumFrame&) override {}
};

inline AudioDetectorDummyStrategy g_dummy_detector_strategy;

/// Reports every recognition at once and, when the call ends, the best of each sample. D, the
/// detector, finds the handlers.
template <typename D>
class AudioDetectorFullMatchStrategy : public IAudioDetectorStrategy,
                                       private audio::HashGeneratorCallback,
                                       private audio::SamplesDetectorCallback {
 public:
  /// Not owned.
  explicit AudioDetectorFullMatchStrategy(ReportManager& report_manager)
      : m_report_manager(report_manager) {}

  void handle_terminated(rc_ptr<MediaSession> session) override {
    const auto detector_of = [&](const rc_ptr<media::Stream>& stream) {
      return stream ? &D::stream_handler(*stream).m_detector : nullptr;
    };
    m_report_manager.push(rc_ptr<Report>(new AudioDetectorSessionReport(
        session, D::session_handler(*session).m_version, detector_of(session->m_streams[0]),
        detector_of(session->m_streams[1]))));
  }

  void handle_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                             const audio::SpectrumFrame& frame) override {
    StreamContext context{stream, session};
    D::stream_handler(*stream).m_hash_generator.compute_hash(frame, *this, &context);
  }

  ~AudioDetectorFullMatchStrategy() override = default;

 private:
  void on_hash_data(audio::HashPoint point, void* user) override {
    D::stream_handler(*StreamContext::of(user).stream).m_detector.handle_hash(point, *this, user);
  }

  void on_sample_detected(audio::Match match, void* user) override {
    const auto& [stream, session] = StreamContext::of(user);
    m_report_manager.push(rc_ptr<Report>(new AudioDetectorStreamReport(
        session, D::session_handler(*session).m_version, std::move(match), stream->m_side)));
  }

  ReportManager& m_report_manager;
};

/// Reports every recognition at once, and nothing when the call ends.
template <typename D>
class AudioDetectorRealtimeMatchStrategy final : public AudioDetectorFullMatchStrategy<D> {
 public:
  using AudioDetectorFullMatchStrategy<D>::AudioDetectorFullMatchStrategy;

  void handle_terminated(rc_ptr<MediaSession>) override {}
};

}  // namespace cv::mn
