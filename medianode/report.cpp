#include "medianode/report.h"

#include <charconv>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "utils/utils_str.h"

namespace cv::mn {

namespace {

constexpr double seconds_per_frame = 0.016;

/// A number as a fresh character stream in the "C" locale writes it: integers in plain decimal,
/// doubles with six significant digits.
template <typename T>
struct Number {
  T value;
};
template <typename T>
Number(T) -> Number<T>;

template <typename T>
std::ostream& operator<<(std::ostream& out, Number<T> number) {
  char text[32];
  std::to_chars_result result{};
  if constexpr (std::is_floating_point_v<T>) {
    result = std::to_chars(text, text + sizeof text, number.value, std::chars_format::general, 6);
  } else {
    result = std::to_chars(text, text + sizeof text, number.value);
  }
  return out.write(text, result.ptr - text);
}

template <typename Frames>
Number<double> frame_time(Frames frames) {
  return {static_cast<double>(frames) * seconds_per_frame};
}

std::string_view side_name(uint16_t side) { return side == 0 ? "originator" : "terminator"; }

std::ostream& serialize_match(std::ostream& out, const audio::Match& match) {
  // Unsigned on purpose: an end before the start wraps, as receivers expect.
  const uint32_t duration_frames = match.end - match.start;
  return out << "\"offset\": " << frame_time(match.offset)       //
             << ", \"score\": " << Number{match.score}           //
             << ", \"sample_id\": " << Number{match.sample->id}  //
             << ", \"sample_name\": \"" << match.sample->name    //
             << "\", \"sample_start\": " << frame_time(match.start)
             << ", \"sample_duration\": " << frame_time(duration_frames);
}

void serialize_matches(std::ostream& out, const std::vector<audio::Match>& matches) {
  const char* separator = "";
  out << "[";
  for (const audio::Match& match : matches) {
    serialize_match(out << std::exchange(separator, ", ") << "{", match) << "}";
  }
  out << "]";
}

/// A text that memory did not suffice for is none.
void count(const std::ostream& out, Counter& reports) {
  if (out.good()) reports.increment();
}

/// In descending order of score.
std::vector<audio::Match> collect_matches(const audio::SamplesDetector* detector) {
  std::vector<audio::Match> matches;
  if (detector != nullptr) detector->get_match(matches);
  return matches;
}

}  // namespace

Report::Report(rc_ptr<MediaSession> session)
    : m_session(session), m_destination(session ? session->m_report_address : net::HostAddr()) {}

void Report::serialize(std::ostream&, ReportManagerStatistic&) const {}

bool Report::transfer_enabled(const Configuration&) const { return true; }

std::ostream& Report::serialize(std::ostream& out) const {
  return out << "\"session_uuid\": \"" << utils::str::UuidText(m_session->m_uuid.data())
             << "\", \"session_timestamp\": " << Number{m_session->m_ts};
}

AudioDetectionReport::AudioDetectionReport(rc_ptr<MediaSession> session, uint64_t version)
    : Report(std::move(session)), m_version(version) {}

bool AudioDetectionReport::transfer_enabled(const Configuration& configuration) const {
  return configuration.sample_detection_transfer;
}

std::ostream& AudioDetectionReport::serialize(std::ostream& out) const {
  return Report::serialize(out) << ", \"version\": " << Number{m_version};
}

AudioDetectorStreamReport::AudioDetectorStreamReport(rc_ptr<MediaSession> session, uint64_t version,
                                                     audio::Match match, uint16_t side)
    : AudioDetectionReport(std::move(session), version), m_match(std::move(match)), m_side(side) {}

void AudioDetectorStreamReport::serialize(std::ostream& out,
                                          ReportManagerStatistic& statistic) const {
  serialize(out << "{\"type\": \"corvanth_detection\", ")
      << ", \"call_side\": \"" << side_name(m_side) << "\", ";
  serialize_match(out, m_match) << ", \"event_object\": " << m_match.sample->event_object << "}";
  count(out, statistic.detection_reports);
}

AudioDetectorSessionReport::AudioDetectorSessionReport(
    rc_ptr<MediaSession> session, uint64_t version,
    const audio::SamplesDetector* originator_detector,
    const audio::SamplesDetector* terminator_detector)
    : AudioDetectionReport(std::move(session), version),
      m_originator_detector(originator_detector),
      m_terminator_detector(terminator_detector) {}

void AudioDetectorSessionReport::serialize(std::ostream& out,
                                           ReportManagerStatistic& statistic) const {
  const auto originator = collect_matches(m_originator_detector);
  const auto terminator = collect_matches(m_terminator_detector);
  if (originator.empty() && terminator.empty()) return;

  serialize(out << "{\"type\": \"corvanth_sample_match\", ") << ", \"originator_match\": ";
  serialize_matches(out, originator);
  out << ", \"terminator_match\": ";
  serialize_matches(out, terminator);
  out << "}";
  count(out, statistic.sample_match_reports);
}

AudioActivityReport::AudioActivityReport(rc_ptr<MediaSession> session, uint64_t offset_frames,
                                         uint16_t side)
    : Report(std::move(session)), m_offset(offset_frames), m_side(side) {}

void AudioActivityReport::serialize(std::ostream& out, ReportManagerStatistic& statistic) const {
  // The member says milliseconds and holds seconds: receivers have always read it so.
  serialize(out << "{\"type\": \"audio_activity\", ")
      << ", \"call_side\": \"" << side_name(m_side) << "\", \"offset_ms\": " << frame_time(m_offset)
      << "}";
  count(out, statistic.audio_activity_reports);
}

bool AudioActivityReport::transfer_enabled(const Configuration& configuration) const {
  return configuration.audio_activity_transfer;
}

}  // namespace cv::mn
