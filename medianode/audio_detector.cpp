#include "medianode/audio_detector.h"

#include "log/log.h"
#include "media/media_packet.h"
#include "utils/utils_str.h"

namespace cv::mn {

namespace {

struct CallTag {
  const MediaSession& session;
};

std::ostream& operator<<(std::ostream& out, const CallTag& tag) {
  return out << "AUDIO_DETECTOR: " << utils::str::UuidText(tag.session.m_uuid.data()) << ": ";
}

void stop_matching(const AudioDetectorCall& call) {
  IAudioDetectorStrategy*& strategy = call.handler.m_strategy;
  if (strategy == &g_dummy_detector_strategy) return;
  CV_LOG(SystemMessage) << CallTag{call.session} << (strategy == nullptr ? "inactive" : "stopped");
  strategy = &g_dummy_detector_strategy;
}

/// True when the handler holds the rule's database, and there is something in it to match.
bool find_database(const AudioDetectorCall& call, DatabaseDispatcher& database_dispatcher) {
  AudioDetectorSessionHandler& handler = call.handler;
  const uint64_t rule = call.session.m_rule;
  handler.m_database = database_dispatcher.get_hash_database(rule, handler.m_version);
  if (!handler.m_database) {
    CV_LOG(ErrorMessage) << CallTag{call.session} << "ignored due to unknown rule id [" << rule
                         << "]";
    return false;
  }
  if (handler.m_database->empty()) {
    CV_LOG(ErrorMessage) << CallTag{call.session}
                         << "ignored due to absence of hash data (rule id: " << rule << ")";
    return false;
  }
  return true;
}

}  // namespace

void prepare_detector(AudioDetectorStreamHandler& stream, const AudioDetectorSessionHandler& call,
                      const Configuration& configuration) {
  stream.m_detector.set_database(call.m_database);
  stream.m_detector.set_drift(configuration.audio_detection_drift);
}

void select_detector_strategy(const AudioDetectorCall& call, const Configuration& configuration,
                              DatabaseDispatcher& database_dispatcher,
                              IAudioDetectorStrategy& full_match_strategy,
                              IAudioDetectorStrategy& realtime_strategy) {
  if ((call.session.m_features & media::features_sample_detection) == 0) {
    stop_matching(call);
    return;
  }
  AudioDetectorSessionHandler& handler = call.handler;
  const bool was_idle = handler.m_strategy == &g_dummy_detector_strategy;
  if (handler.m_strategy != nullptr && !was_idle) return;

  handler.m_strategy = &g_dummy_detector_strategy;
  if (!find_database(call, database_dispatcher)) return;
  if (was_idle) {
    for (AudioDetectorStreamHandler* stream : call.streams) {
      if (stream == nullptr) continue;
      stream->m_detector.reset();
      prepare_detector(*stream, handler, configuration);
    }
  }
  const bool full_match = configuration.report_on_call_termination;
  handler.m_strategy = full_match ? &full_match_strategy : &realtime_strategy;
  CV_LOG(SystemMessage) << CallTag{call.session} << "started (" << (full_match ? "fm " : "rt ")
                        << "v: " << handler.m_version << ")";
}

}  // namespace cv::mn
