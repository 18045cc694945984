#include "tools/analyse/analysis.h"

#include <utility>

#include "tools/audio_file.h"
#include "utils/utils_str.h"

namespace cv::tools {

void Analysis::trace(const TraceSettings& settings) {
  const bool matching = (m_terms.features & media::features_sample_detection) != 0;
  m_recorder.emplace(settings, rule(), m_settings->audio_detection_drift, matching);
  m_node.watch(*m_recorder);
}

Analysed Analysis::run(Recording recording) {
  Analysed analysed;
  analysed.uuid = m_terms.uuid.value_or(recording_uuid(recording.name));
  analysed.samples = recording.samples();
  m_progress.samples_known += analysed.samples;

  if (m_recorder) m_recorder->begin(recording, analysed.uuid, m_terms.rule);

  CallSettings settings;
  settings.call_id = "corvanth-analyse-" + utils::str::print_uuid(analysed.uuid.data());
  settings.uuid = analysed.uuid;
  settings.rule = m_terms.rule;
  settings.timestamp = m_terms.timestamp;
  settings.features = m_terms.features;
  settings.there = recording.there;
  CallSchedule call(settings, std::move(recording.sides));
  uint64_t done = 0;
  m_node.run(
      call,
      [&](const mn::Report& report, const std::string& line) {
        if (m_recorder) m_recorder->on_report(report);
        analysed.lines.push_back(line);
      },
      [&](int64_t media_us) {
        const uint64_t reached = static_cast<uint64_t>(media_us / us_per_sample);
        m_progress.samples_done += reached - done;
        done = reached;
        return !m_progress.stopped;
      });
  if (m_recorder) analysed.trace = m_recorder->end();
  return analysed;
}

}  // namespace cv::tools
