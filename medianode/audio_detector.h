// Decides, call by call, whether and how its audio is matched against known samples, and hands its
// frames to the strategy chosen.
//
// A call keeps the database and the kind of strategy it was started with; switching sample detection
// off and on again reads the newest database and starts all votes anew. A call whose rule is unknown
// or has no hashes goes unmatched until a later update of it finds otherwise.
// Threads: the packet reader's. Ownership: shares the configuration, borrows the rest.
#pragma once

#include <array>
#include <utility>

#include "medianode/audio_detector_strategies.h"
#include "medianode/configuration.h"
#include "medianode/database_dispatcher.h"
#include "medianode/media_listeners.h"

namespace cv::mn {

/// What the selection of a strategy reads and changes.
struct AudioDetectorCall {
  const MediaSession& session;
  AudioDetectorSessionHandler& handler;
  std::array<AudioDetectorStreamHandler*, 2> streams;  // by side, null: not created yet
};

/// Chooses the call's strategy by its features, its rule and `configuration`.
void select_detector_strategy(const AudioDetectorCall& call, const Configuration& configuration,
                              DatabaseDispatcher& database_dispatcher,
                              IAudioDetectorStrategy& full_match_strategy,
                              IAudioDetectorStrategy& realtime_strategy);

/// Makes a side ready for matching. The database may be empty as long as nothing is matched.
void prepare_detector(AudioDetectorStreamHandler& stream, const AudioDetectorSessionHandler& call,
                      const Configuration& configuration);

template <typename M>
class AudioDetector final : public MediaSessionListener,
                            public MediaStreamCreationListener,
                            public SpectrumGeneratorListener {
 public:
  AudioDetector(rc_ptr<Configuration> configuration, DatabaseDispatcher& database_dispatcher,
                ReportManager& report_manager)
      : m_configuration(std::move(configuration)),
        m_database_dispatcher(database_dispatcher),
        m_full_match_strategy(report_manager),
        m_realtime_strategy(report_manager) {}

  static AudioDetectorSessionHandler& session_handler(MediaSession& session) {
    return M::template session_state<AudioDetectorSessionHandler>(session);
  }
  static AudioDetectorStreamHandler& stream_handler(media::Stream& stream) {
    return M::template stream_state<AudioDetectorStreamHandler>(stream);
  }

  void on_session_created(rc_ptr<MediaSession> session) override { select_strategy(*session); }
  void on_session_updated(rc_ptr<MediaSession> session) override { select_strategy(*session); }
  void on_session_terminated(rc_ptr<MediaSession> session) override {
    session_handler(*session).m_strategy->handle_terminated(session);
  }
  void on_session_timedout(rc_ptr<MediaSession> session) override {
    session_handler(*session).m_strategy->handle_terminated(session);
  }

  void on_stream_created(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session) override {
    prepare_detector(stream_handler(*stream), session_handler(*session), *m_configuration);
  }

  void on_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                         const audio::SpectrumFrame& frame) override {
    IAudioDetectorStrategy& strategy = *session_handler(*session).m_strategy;
    strategy.handle_spectrum_frame(std::move(stream), std::move(session), frame);
  }

  void select_strategy(MediaSession& session) {
    AudioDetectorCall call{session, session_handler(session), {}};
    for (std::size_t side = 0; side < call.streams.size(); ++side) {
      if (const auto& stream = session.m_streams[side]) {
        call.streams[side] = &stream_handler(*stream);
      }
    }
    select_detector_strategy(call, *m_configuration, m_database_dispatcher, m_full_match_strategy,
                             m_realtime_strategy);
  }

 private:
  rc_ptr<Configuration> m_configuration;
  DatabaseDispatcher& m_database_dispatcher;
  AudioDetectorFullMatchStrategy<AudioDetector> m_full_match_strategy;
  AudioDetectorRealtimeMatchStrategy<AudioDetector> m_realtime_strategy;
};

}  // namespace cv::mn
