#include "tools/analyse/trace_csv.h"

#include <array>
#include <charconv>
#include <string_view>

namespace cv::tools {

namespace {

/// Builds rows.
class Rows {
 public:
  explicit Rows(std::string& out) : m_out(out) {}

  Rows& text(std::string_view field) {
    begin_field();
    if (field.find_first_of(",\"\r\n") == field.npos) {
      m_out += field;
      return *this;
    }
    m_out += '"';
    for (const char c : field) m_out.append(c == '"' ? 2 : 1, c);
    m_out += '"';
    return *this;
  }
  Rows& integer(int64_t value) {
    begin_field();
    return append(std::to_chars(m_buffer.data(), m_buffer.data() + m_buffer.size(), value));
  }
  /// Nine digits: what one machine and another may round differently is far behind them.
  Rows& number(double value) {
    begin_field();
    return append(std::to_chars(m_buffer.data(), m_buffer.data() + m_buffer.size(), value,
                                std::chars_format::general, 9));
  }
  /// Frames, as seconds: exact with three decimals.
  Rows& seconds(int64_t frames) {
    begin_field();
    return append(std::to_chars(m_buffer.data(), m_buffer.data() + m_buffer.size(),
                                static_cast<double>(frames) * seconds_per_frame,
                                std::chars_format::fixed, 3));
  }
  Rows& empty(int fields) {
    for (; fields > 0; --fields) begin_field();
    return *this;
  }
  void end() {
    m_out += '\n';
    m_first = true;
  }

 private:
  void begin_field() {
    if (!m_first) m_out += ',';
    m_first = false;
  }
  Rows& append(std::to_chars_result end) {
    m_out.append(m_buffer.data(), end.ptr);
    return *this;
  }

  std::string& m_out;
  std::array<char, 64> m_buffer{};
  bool m_first = true;
};

/// Walks the tracks of a side along its frames.
class NearestSample {
 public:
  explicit NearestSample(const SideTrace& side) : m_side(side), m_next(side.tracks.size()) {}

  /// The track and point, of this frame, that come nearest to their threshold; null: no votes. Frames
  /// ascend from call to call.
  const SampleTrack* at(uint64_t frame, const ScorePoint*& point) {
    const SampleTrack* nearest = nullptr;
    for (std::size_t i = 0; i < m_side.tracks.size(); ++i) {
      const SampleTrack& track = m_side.tracks[i];
      if (m_next[i] == track.points.size() || track.points[m_next[i]].frame != frame) continue;
      const ScorePoint& here = track.points[m_next[i]++];
      if (nearest != nullptr &&
          here.voted.score - track.threshold <= point->voted.score - nearest->threshold) {
        continue;
      }
      nearest = &track;
      point = &here;
    }
    return nearest;
  }

 private:
  const SideTrace& m_side;
  std::vector<std::size_t> m_next;
};

std::string detected_at(const SideTrace& side, uint64_t frame, std::size_t& next) {
  std::string names;
  for (; next < side.detections.size() && side.detections[next].frame == frame; ++next) {
    if (!names.empty()) names += ' ';
    names += side.detections[next].sample_name;
  }
  return names;
}

void append_frames(const CallTrace& trace, std::size_t number, std::string& out) {
  const SideTrace& side = trace.sides[number];
  Rows rows(out);
  NearestSample nearest(side);
  std::size_t next_detection = 0;
  std::size_t span = 0;
  for (std::size_t i = 0; i < side.frames.size(); ++i) {
    const FrameTrace& frame = side.frames[i];
    while (span < side.active.size() && side.active[span].end_frame <= i) ++span;
    const bool in_segment = span < side.active.size() && side.active[span].begin_frame <= i;
    rows.text(trace.name).text(side_name(number)).integer(static_cast<int64_t>(i));
    rows.seconds(static_cast<int64_t>(i)).number(frame.amplitude).number(frame.deviation);
    rows.number(frame.weighted_power).integer(frame.active).integer(in_segment);
    if (frame.hash) {
      rows.integer(*frame.hash);
    } else {
      rows.empty(1);
    }
    const ScorePoint* point = nullptr;
    if (const SampleTrack* track = nearest.at(i, point)) {
      rows.text(track->sample_name).number(track->threshold).number(point->voted.score);
      rows.seconds(point->voted.shift).integer(static_cast<int64_t>(point->voted.votes));
    } else {
      rows.empty(5);
    }
    rows.text(detected_at(side, i, next_detection)).end();
  }
}

void append_shift(Rows& rows, const ScoredShift& shift) {
  if (shift.votes == 0) {
    rows.empty(3);
    return;
  }
  rows.number(shift.score).seconds(shift.shift).integer(static_cast<int64_t>(shift.votes));
}

void append_scores(const CallTrace& trace, std::size_t number, std::string& out) {
  Rows rows(out);
  for (const SampleTrack& track : trace.sides[number].tracks) {
    for (const ScorePoint& point : track.points) {
      rows.text(trace.name).text(side_name(number)).integer(track.sample_id);
      rows.text(track.sample_name).number(track.threshold);
      rows.integer(static_cast<int64_t>(point.frame)).seconds(static_cast<int64_t>(point.frame));
      append_shift(rows, point.voted);
      append_shift(rows, point.best);
      append_shift(rows, point.runner_up);
      rows.integer(static_cast<int64_t>(point.total)).integer(static_cast<int64_t>(point.shifts));
      rows.end();
    }
  }
}

}  // namespace

std::string frames_csv_heading() {
  return "recording,side,frame,time_s,amplitude,deviation,weighted_power,active,in_segment,hash,"
         "sample,threshold,score,offset_s,votes,detected\n";
}

std::string frames_csv(const CallTrace& trace) {
  std::string out;
  for (std::size_t side = 0; side < 2; ++side) append_frames(trace, side, out);
  return out;
}

std::string scores_csv_heading() {
  return "recording,side,sample_id,sample,threshold,frame,time_s,score,offset_s,votes,"
         "best_score,best_offset_s,best_votes,runner_up_score,runner_up_offset_s,runner_up_votes,"
         "total,shifts\n";
}

std::string scores_csv(const CallTrace& trace) {
  std::string out;
  for (std::size_t side = 0; side < 2; ++side) append_scores(trace, side, out);
  return out;
}

}  // namespace cv::tools
