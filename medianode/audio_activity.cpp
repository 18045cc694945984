#include "medianode/audio_activity.h"

#include <ostream>

#include "log/log.h"
#include "utils/utils_str.h"

namespace cv::mn {

namespace {

/// Feature bit 2 is the originator's, bit 3 the terminator's.
constexpr unsigned first_activity_bit = 2;

struct SideTag {
  const MediaSession& session;
  uint16_t side;
};

std::ostream& operator<<(std::ostream& out, const SideTag& tag) {
  return out << "AUDIO_ACTIVITY: " << utils::str::UuidText(tag.session.m_uuid.data()) << ": "
             << (tag.side == 0 ? "originator" : "terminator");
}

void stop_detection(AudioActivityHandler& handler, uint16_t side, const MediaSession& session) {
  if (handler.m_strategy == &g_dummy_activity_strategy) return;
  CV_LOG(SystemMessage) << SideTag{session, side}
                        << (handler.m_strategy == nullptr ? " inactive" : " stopped");
  handler.m_strategy = &g_dummy_activity_strategy;
}

}  // namespace

void select_activity_strategy(AudioActivityHandler& handler, const media::Stream& stream,
                              const MediaSession& session, DeadAirDispatcher& dead_air_dispatcher,
                              IAudioActivityStrategy& first_only_strategy) {
  if ((session.m_features >> (first_activity_bit + stream.m_side) & 1) == 0) {
    stop_detection(handler, stream.m_side, session);
    return;
  }
  if (handler.m_strategy == &first_only_strategy) return;
  handler = AudioActivityHandler();
  handler.m_strategy = &first_only_strategy;

  uint64_t version = 0;
  const audio::SegmentDetectionOptions& options =
      dead_air_dispatcher.get_options(session.m_rule, version);
  handler.m_detector.set_options(options);
  CV_LOG(SystemMessage) << SideTag{session, stream.m_side}
                        << " started, options: version = " << version
                        << ", sig_threshold = " << options.sig_threshold
                        << ", pow_threshold = " << options.pow_threshold
                        << ", dev_threshold = " << options.dev_threshold
                        << ", activity_hits = " << options.activity_hits
                        << ", silence_hits = " << options.silence_hits;
}

void log_activity_selection_postponed(const MediaSession& session, uint16_t side) {
  CV_LOG(DebugMessage) << SideTag{session, side}
                       << " stream is not yet created, a strategy is being selected on stream "
                          "creation";
}

}  // namespace cv::mn
