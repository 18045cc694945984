#include "medianode/media_pipeline.h"

namespace cv::mn {

MediaPipeline::MediaPipeline(rc_ptr<Configuration> configuration,
                             DatabaseDispatcher& database_dispatcher,
                             DeadAirDispatcher& dead_air_dispatcher, ReportManager& report_manager,
                             media::StreamManagerStatistic& statistic, const IClock& clock)
    : m_report_destinations(configuration->report_destinations, clock),
      m_audio_detector(configuration, database_dispatcher, report_manager),
      m_audio_activity_detector(dead_air_dispatcher, report_manager),
      m_manager(statistic, clock) {
  m_manager.set_session_limit(configuration->session_limit);
  // First: before anybody makes a report.
  m_manager.add_session_listener(&m_report_destinations);
  m_manager.add_stream_packet_listener(&m_spectrum_generator);
  m_manager.add_session_listener(&m_audio_detector);
  m_manager.add_session_listener(&m_audio_activity_detector);
  m_manager.add_stream_creation_listener(&m_audio_detector);
  m_manager.add_stream_creation_listener(&m_audio_activity_detector);
  m_spectrum_generator.add_listener(&m_audio_detector);
  m_spectrum_generator.add_listener(&m_audio_activity_detector);
}

}  // namespace cv::mn
