// Finds the first audio activity of every call side that asks for it; a side without one is dead air.
//
// Each side has its own feature bit, strategy and detector. The options are those that the side's
// rule has when detection starts; switching the feature off and on again starts with the newest ones
// from a clean detector, and may report that side once more.
// Threads: the packet reader's.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "audio/audio_segment_detector.h"
#include "medianode/dead_air_dispatcher.h"
#include "medianode/media_listeners.h"
#include "medianode/report.h"
#include "medianode/report_manager.h"
#include "medianode/stream_context.h"

namespace cv::mn {

class IAudioActivityStrategy {
 public:
  virtual void handle_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                                     const audio::SpectrumFrame& frame) = 0;

 protected:
  ~IAudioActivityStrategy() = default;
};

/// Per call side.
struct AudioActivityHandler {
  IAudioActivityStrategy* m_strategy = nullptr;  // not owned; never null once the side is seen
  audio::SegmentDetector m_detector;
  std::optional<uint64_t> m_found;  // frame of the first activity
  bool m_reported = false;  // the side has been reported: its frames are of no more interest
};

/// A side without activity detection.
class AudioActivityDummyStrategy final : public IAudioActivityStrategy {
 public:
  void handle_spectrum_frame(rc_ptr<media::Stream>, rc_ptr<MediaSession>,
                             const audio::SpectrumFrame&) override {}
};

inline AudioActivityDummyStrategy g_dummy_activity_strategy;

/// Reports the first start of a segment. D, the detector, finds the handlers.
template <typename D>
class AudioActivityFirstOnlyStrategy final : public IAudioActivityStrategy,
                                             private audio::SegmentDetectorCallback {
 public:
  /// Not owned.
  explicit AudioActivityFirstOnlyStrategy(ReportManager& report_manager)
      : m_report_manager(report_manager) {}

  void handle_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                             const audio::SpectrumFrame& frame) override {
    AudioActivityHandler& handler = D::stream_handler(*stream);
    if (handler.m_reported) return;
    StreamContext context{stream, session};
    if (handler.m_found) return report(context);  // there was no memory for it before
    handler.m_detector.handle_frame(frame, *this, &context);
  }

 private:
  void on_segment_data(const audio::Segment& segment, void* user) override {
    if (segment.type != audio::Segment::start) return;
    const StreamContext& context = StreamContext::of(user);
    D::stream_handler(*context.stream).m_found = segment.offset;
    report(context);
  }

  void report(const StreamContext& context) {
    AudioActivityHandler& handler = D::stream_handler(*context.stream);
    const rc_ptr<Report> report(
        new AudioActivityReport(context.session, *handler.m_found, context.stream->m_side));
    handler.m_reported = true;
    m_report_manager.push(report);
  }

  ReportManager& m_report_manager;
};

/// Chooses the side's strategy by the call's features.
void select_activity_strategy(AudioActivityHandler& handler, const media::Stream& stream,
                              const MediaSession& session, DeadAirDispatcher& dead_air_dispatcher,
                              IAudioActivityStrategy& first_only_strategy);

void log_activity_selection_postponed(const MediaSession& session, uint16_t side);

template <typename M>
class AudioActivityDetector final : public MediaSessionListener,
                                    public MediaStreamCreationListener,
                                    public SpectrumGeneratorListener {
 public:
  /// Neither is owned.
  AudioActivityDetector(DeadAirDispatcher& dead_air_dispatcher, ReportManager& report_manager)
      : m_dead_air_dispatcher(dead_air_dispatcher), m_first_only_strategy(report_manager) {}

  static AudioActivityHandler& stream_handler(media::Stream& stream) {
    return M::template stream_state<AudioActivityHandler>(stream);
  }

  void on_session_updated(rc_ptr<MediaSession> session) override {
    for (std::size_t side = 0; side < session->m_streams.size(); ++side) {
      if (const auto& stream = session->m_streams[side]) {
        select_strategy(*stream, *session);
      } else {
        log_activity_selection_postponed(*session, static_cast<uint16_t>(side));
      }
    }
  }

  void on_stream_created(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session) override {
    select_strategy(*stream, *session);
  }

  void on_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                         const audio::SpectrumFrame& frame) override {
    IAudioActivityStrategy& strategy = *stream_handler(*stream).m_strategy;
    strategy.handle_spectrum_frame(std::move(stream), std::move(session), frame);
  }

 private:
  void select_strategy(media::Stream& stream, const MediaSession& session) {
    select_activity_strategy(stream_handler(stream), stream, session, m_dead_air_dispatcher,
                             m_first_only_strategy);
  }

  DeadAirDispatcher& m_dead_air_dispatcher;
  AudioActivityFirstOnlyStrategy<AudioActivityDetector> m_first_only_strategy;
};

}  // namespace cv::mn
