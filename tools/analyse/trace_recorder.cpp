#include "tools/analyse/trace_recorder.h"

#include <algorithm>
#include <utility>

namespace cv::tools {

TraceRecorder::TraceRecorder(TraceSettings settings, const RuleInForce& rule, uint8_t drift_frames,
                             bool matching)
    : m_settings(std::move(settings)), m_rule(rule), m_drift_frames(drift_frames) {
  if (!matching || !rule.database) return;
  for (uint32_t i = 0; i < rule.database->sample_count(); ++i) {
    m_samples.emplace_back(rule.database->sample_at(i), drift_frames);
  }
}

void TraceRecorder::begin(const Recording& recording, const media::Uuid& uuid, uint64_t rule_id) {
  m_trace = {};
  m_trace.name = recording.name;
  m_trace.uuid = uuid;
  m_trace.rule = rule_id;
  m_trace.version = m_rule.version;
  m_trace.drift_frames = m_drift_frames;
  m_trace.activity = m_rule.activity;
  for (std::size_t side = 0; side < 2; ++side) {
    m_trace.sides[side].there = recording.there[side];
    m_trace.sides[side].samples = recording.sides[side];
    m_segments[side] = audio::SegmentDetector(m_rule.activity);
    m_points[side].clear();
  }
}

void TraceRecorder::on_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<mn::MediaSession>,
                                      const audio::SpectrumFrame& frame) {
  const std::size_t side = stream->m_side;
  SideTrace& trace = m_trace.sides[side];
  trace.frames.push_back({frame.amplitude, frame.deviation, audio::tonal_power(frame),
                          m_segments[side].is_active(frame), std::nullopt});
  std::size_t user = side;
  audio::HashGenerator().compute_hash(frame, *this, &user);
  m_segments[side].handle_frame(frame, *this, &trace);
}

void TraceRecorder::on_hash_data(audio::HashPoint point, void* user) {
  const std::size_t side = *static_cast<const std::size_t*>(user);
  m_trace.sides[side].frames.back().hash = point.hash;
  m_points[side].push_back(point);
}

void TraceRecorder::on_segment_data(const audio::Segment& segment, void* user) {
  auto& spans = static_cast<SideTrace*>(user)->active;
  if (segment.type == audio::Segment::start) {
    spans.push_back({segment.offset, UINT64_MAX});
  } else {
    spans.back().end_frame = segment.offset;
  }
}

/// The frame that decides is the one that the analysers have and this recorder has not.
void TraceRecorder::on_report(const mn::Report& report) {
  if (const auto* found = dynamic_cast<const mn::AudioDetectorStreamReport*>(&report)) {
    SideTrace& side = m_trace.sides[found->m_side];
    const audio::Match& match = found->m_match;
    side.detections.push_back({side.frames.size(), match.sample->id, match.sample->name,
                               match.score, match.offset, match.start, match.end});
  } else if (const auto* activity = dynamic_cast<const mn::AudioActivityReport*>(&report)) {
    m_trace.sides[activity->m_side].first_activity_frame = activity->m_offset;
  }
}

void TraceRecorder::add_tracks(std::size_t side) {
  SideTrace& trace = m_trace.sides[side];
  const auto& points = m_points[side];
  std::vector<std::pair<double, const SampleVotes*>> order;
  for (const SampleVotes& sample : m_samples) order.emplace_back(sample.nearest(points), &sample);
  std::stable_sort(order.begin(), order.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::size_t more = m_settings.tracks;
  for (const auto& [nearest, sample] : order) {
    const audio::SampleMetadata& metadata = sample->metadata();
    const auto is_this = [&](const DetectionTrace& found) {
      return found.sample_id == metadata.id;
    };
    const auto& names = m_settings.names;
    const bool found = std::any_of(trace.detections.begin(), trace.detections.end(), is_this);
    const bool named = std::find(names.begin(), names.end(), metadata.name) != names.end();
    if (!found && !named && more == 0) continue;
    if (!found && !named) --more;
    trace.tracks.push_back(sample->track(points));
  }
}

CallTrace TraceRecorder::end() {
  for (std::size_t side = 0; side < 2; ++side) {
    SideTrace& trace = m_trace.sides[side];
    if (!trace.there) continue;
    if (!trace.active.empty()) {
      trace.active.back().end_frame =
          std::min<uint64_t>(trace.active.back().end_frame, trace.frames.size());
    }
    add_tracks(side);
  }
  return std::exchange(m_trace, {});
}

}  // namespace cv::tools
