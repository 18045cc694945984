#include "tools/analyse/call_page.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

#include "tools/analyse/call_page_charts_js.h"
#include "tools/analyse/call_page_css.h"
#include "tools/analyse/call_page_html.h"
#include "tools/analyse/call_page_js.h"
#include "tools/analyse/call_page_model_js.h"
#include "tools/json_text.h"
#include "tools/page/packed_columns.h"
#include "tools/page/page.h"
#include "utils/utils_str.h"

namespace cv::tools {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

constexpr std::size_t most_columns = std::size_t{1} << 18;
constexpr std::size_t samples_per_frame = 128;
// Of all tracks together.
constexpr std::size_t most_points = 400000;
constexpr uint64_t near_frames = 625;  // 10 s
constexpr std::size_t most_marks = 8;

void write(Writer& writer, const char* name, std::string_view text) {
  writer.Key(name);
  write_string(writer, text);
}

void write(Writer& writer, const char* name, double value) {
  writer.Key(name);
  if (std::isfinite(value)) {
    writer.Double(value);
  } else {
    writer.Null();
  }
}

void write_count(Writer& writer, const char* name, uint64_t value) {
  writer.Key(name);
  writer.Uint64(value);
}

void write(Writer& writer, const char* name, const PackedColumns::Place& place) {
  writer.Key(name);
  writer.StartArray();
  writer.Uint64(place.at);
  writer.Uint64(place.count);
  writer.String(place.type);
  writer.EndArray();
}

std::size_t columns_of(std::size_t count, std::size_t width) { return (count + width - 1) / width; }

/// The lowest and highest of each `width` values; of one, only that.
template <typename Value>
void write_envelope(Writer& writer, PackedColumns& packed, const char* name,
                    const std::vector<FrameTrace>& frames, std::size_t width, const Value& value) {
  std::vector<float> low, high;
  for (std::size_t begin = 0; begin < frames.size(); begin += width) {
    const std::size_t end = std::min(frames.size(), begin + width);
    float least = std::numeric_limits<float>::max(), most = std::numeric_limits<float>::lowest();
    for (std::size_t i = begin; i < end; ++i) {
      least = std::min(least, static_cast<float>(value(frames[i])));
      most = std::max(most, static_cast<float>(value(frames[i])));
    }
    low.push_back(least);
    high.push_back(most);
  }
  writer.Key(name);
  writer.StartObject();
  write(writer, "high", packed.add(high));
  if (width > 1) write(writer, "low", packed.add(low));
  writer.EndObject();
}

/// The wave in steps of its peak's 127th, so that a quiet one is seen, too.
void write_wave(Writer& writer, PackedColumns& packed, const std::vector<int16_t>& samples,
                std::size_t width) {
  int peak = 0;
  for (const int16_t sample : samples) peak = std::max(peak, std::abs(int{sample}));
  const auto step = [&](int sample) {
    return static_cast<int8_t>(std::lround(127.0 * sample / std::max(peak, 1)));
  };
  std::vector<int8_t> low, high;
  for (std::size_t begin = 0; begin < samples.size(); begin += width * samples_per_frame) {
    const auto first = samples.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = samples.begin() + static_cast<std::ptrdiff_t>(std::min(
                                            samples.size(), begin + width * samples_per_frame));
    const auto [least, most] = std::minmax_element(first, last);
    low.push_back(step(*least));
    high.push_back(step(*most));
  }
  writer.Key("wave");
  writer.StartObject();
  writer.Key("peak");
  writer.Int(peak);
  write(writer, "low", packed.add(low));
  write(writer, "high", packed.add(high));
  writer.EndObject();
}

void write_frames(Writer& writer, PackedColumns& packed, const SideTrace& side, std::size_t width) {
  const auto& frames = side.frames;
  write_count(writer, "frames", frames.size());
  write_wave(writer, packed, side.samples, width);
  write_envelope(writer, packed, "amplitude", frames, width,
                 [](const FrameTrace& frame) { return frame.amplitude; });
  write_envelope(writer, packed, "deviation", frames, width,
                 [](const FrameTrace& frame) { return frame.deviation; });
  write_envelope(writer, packed, "weighted_power", frames, width,
                 [](const FrameTrace& frame) { return frame.weighted_power; });
  std::vector<int8_t> active(columns_of(frames.size(), width));
  for (std::size_t i = 0; i < frames.size(); ++i) {
    if (frames[i].active) active[i / width] = 1;
  }
  write(writer, "active", packed.add(active));
  std::vector<int32_t> spans;
  for (const ActiveSpan& span : side.active) {
    spans.push_back(static_cast<int32_t>(span.begin_frame));
    spans.push_back(static_cast<int32_t>(span.end_frame));
  }
  write(writer, "spans", packed.add(spans));
  writer.Key("first_activity");
  if (side.first_activity_frame) {
    writer.Uint64(*side.first_activity_frame);
  } else {
    writer.Null();
  }
}

void write_detections(Writer& writer, const SideTrace& side) {
  writer.Key("detections");
  writer.StartArray();
  for (const DetectionTrace& found : side.detections) {
    writer.StartObject();
    write_count(writer, "frame", found.frame);
    write_count(writer, "id", found.sample_id);
    write(writer, "name", found.sample_name);
    write(writer, "score", found.score);
    writer.Key("shift");
    writer.Int(found.offset_frames);
    write_count(writer, "start", found.start_frame);
    write_count(writer, "end", found.end_frame);
    writer.EndObject();
  }
  writer.EndArray();
}

/// The frames around which every point is kept: findings, and where the score was highest.
std::vector<uint64_t> marks(const SampleTrack& track, const SideTrace& side) {
  const auto highest =
      std::max_element(track.points.begin(), track.points.end(),
                       [](const auto& a, const auto& b) { return a.voted.score < b.voted.score; });
  std::vector<uint64_t> marks = {highest->frame};
  for (const DetectionTrace& found : side.detections) {
    if (found.sample_id == track.sample_id && marks.size() < most_marks)
      marks.push_back(found.frame);
  }
  return marks;
}

std::vector<const ScorePoint*> points_to_show(const SampleTrack& track, const SideTrace& side,
                                              std::size_t budget) {
  std::vector<const ScorePoint*> shown;
  if (track.points.size() <= budget) {
    for (const ScorePoint& point : track.points) shown.push_back(&point);
    return shown;
  }
  const auto near = marks(track, side);
  const auto matters = [&](const ScorePoint& point) {
    return std::any_of(near.begin(), near.end(), [&](uint64_t mark) {
      return point.frame + near_frames >= mark && point.frame <= mark + near_frames;
    });
  };
  const uint64_t width = columns_of(side.frames.size() + 1, budget);
  const ScorePoint* highest = nullptr;
  for (const ScorePoint& point : track.points) {
    if (highest != nullptr && highest->frame / width != point.frame / width) {
      if (!matters(*highest)) shown.push_back(highest);
      highest = nullptr;
    }
    if (matters(point)) {
      shown.push_back(&point);
    }
    if (highest == nullptr || point.voted.score > highest->voted.score) highest = &point;
  }
  if (!matters(*highest)) shown.push_back(highest);
  std::sort(shown.begin(), shown.end(),
            [](const auto* a, const auto* b) { return a->frame < b->frame; });
  return shown;
}

void write_shifts(Writer& writer, PackedColumns& packed, const char* name,
                  const std::vector<const ScorePoint*>& points, ScoredShift ScorePoint::*which) {
  std::vector<float> scores;
  std::vector<int32_t> shifts, votes;
  for (const ScorePoint* point : points) {
    const ScoredShift& shift = point->*which;
    scores.push_back(static_cast<float>(shift.score));
    shifts.push_back(shift.shift);
    votes.push_back(static_cast<int32_t>(shift.votes));
  }
  writer.Key(name);
  writer.StartObject();
  write(writer, "score", packed.add(scores));
  write(writer, "shift", packed.add(shifts));
  write(writer, "votes", packed.add(votes));
  writer.EndObject();
}

void write_track(Writer& writer, PackedColumns& packed, const SampleTrack& track,
                 const SideTrace& side, std::size_t budget) {
  const auto points = points_to_show(track, side, budget);
  std::vector<int32_t> steps;  // from one's frame to the next
  steps.reserve(points.size());
  uint64_t before = 0;
  for (const ScorePoint* point : points) {
    steps.push_back(static_cast<int32_t>(point->frame - std::exchange(before, point->frame)));
  }
  writer.StartObject();
  write_count(writer, "id", track.sample_id);
  write(writer, "name", track.sample_name);
  write(writer, "threshold", track.threshold);
  write(writer, "nearest", track.nearest);
  write_count(writer, "points", track.points.size());
  write(writer, "steps", packed.add(steps));
  write_shifts(writer, packed, "voted", points, &ScorePoint::voted);
  write_shifts(writer, packed, "best", points, &ScorePoint::best);
  write_shifts(writer, packed, "runner_up", points, &ScorePoint::runner_up);
  writer.EndObject();
}

void write_activity(Writer& writer, const audio::SegmentDetectionOptions& activity) {
  writer.Key("activity");
  writer.StartObject();
  write(writer, "amplitude", activity.sig_threshold);
  write(writer, "deviation", activity.dev_threshold);
  write(writer, "weighted_power", activity.pow_threshold);
  write_count(writer, "activity_hits", activity.activity_hits);
  write_count(writer, "silence_hits", activity.silence_hits);
  writer.EndObject();
}

std::string data_json(const CallTrace& trace) {
  std::size_t frames = 0, tracks = 0;
  for (const SideTrace& side : trace.sides) {
    frames = std::max(frames, side.frames.size());
    tracks += side.tracks.size();
  }
  std::size_t width = 1;
  while (columns_of(frames, width) > most_columns) width *= 2;
  const std::size_t budget = most_points / std::max<std::size_t>(tracks, 20);

  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  PackedColumns packed;
  writer.StartObject();
  write(writer, "name", trace.name);
  write(writer, "uuid", utils::str::print_uuid(trace.uuid.data()));
  write_count(writer, "rule", trace.rule);
  write_count(writer, "version", trace.version);
  write_count(writer, "drift_frames", trace.drift_frames);
  write(writer, "seconds_per_frame", seconds_per_frame);
  write_count(writer, "column_frames", width);
  write_activity(writer, trace.activity);
  writer.Key("sides");
  writer.StartArray();
  for (std::size_t number = 0; number < trace.sides.size(); ++number) {
    const SideTrace& side = trace.sides[number];
    if (!side.there) continue;
    writer.StartObject();
    write(writer, "name", side_name(number));
    write_frames(writer, packed, side, width);
    write_detections(writer, side);
    writer.Key("tracks");
    writer.StartArray();
    for (const SampleTrack& track : side.tracks) write_track(writer, packed, track, side, budget);
    writer.EndArray();
    writer.EndObject();
  }
  writer.EndArray();
  write(writer, "packed", packed.text());
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace

std::string call_page(const CallTrace& trace) {
  return html_page("corvanth analyse", call_page_css, call_page_html,
                   {call_page_model_js, call_page_charts_js, call_page_js}, data_json(trace));
}

}  // namespace cv::tools
