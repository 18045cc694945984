// The analysis pipeline, put together: which analysers there are, and in which order each event
// reaches them.
//
// Threads: made on the main thread before the packet reader starts; from then on all of it runs on
// the reader's thread.
#pragma once

#include <tuple>

#include "core/reference_countable.h"
#include "medianode/audio_activity.h"
#include "medianode/audio_detector.h"
#include "medianode/media_manager.h"
#include "medianode/report_destinations.h"
#include "medianode/spectrum_generator.h"

namespace cv::mn {

class MediaPipeline {
 public:
  using Manager = MediaManager<
      std::tuple<AudioDetectorSessionHandler>,
      std::tuple<SpectrumGeneratorState, AudioActivityHandler, AudioDetectorStreamHandler>>;

  /// Shares the configuration, borrows the rest.
  MediaPipeline(rc_ptr<Configuration> configuration, DatabaseDispatcher& database_dispatcher,
                DeadAirDispatcher& dead_air_dispatcher, ReportManager& report_manager,
                media::StreamManagerStatistic& statistic, const IClock& clock = steady_clock());

  /// `listener`, not owned, gets every frame after the analysers; before the first packet. The node has
  /// none: it is for tools that show what the analysers see.
  void add_spectrum_listener(SpectrumGeneratorListener* listener) {
    m_spectrum_generator.add_listener(listener);
  }

  /// Where the checked packets go.
  Manager& manager() { return m_manager; }

 private:
  ReportDestinations m_report_destinations;
  SpectrumGenerator<Manager> m_spectrum_generator;
  AudioDetector<Manager> m_audio_detector;
  AudioActivityDetector<Manager> m_audio_activity_detector;
  Manager m_manager;  // last: it holds on to the others
};

}  // namespace cv::mn
