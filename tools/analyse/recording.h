// What is analysed as one call: its name and the audio of its sides.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "media/media_packet.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {

struct Recording {
  std::string name;           // as reports to the operator name it
  CallSchedule::Sides sides;  // 8,000 samples a second
  std::array<bool, 2> there = {false, false};
  std::vector<std::string> notes{};  // for the operator, a line each: what was wrong with it

  std::size_t samples() const { return std::max(sides[0].size(), sides[1].size()); }
};

/// Where a recording comes from.
struct RecordingSource {
  std::string name;
  /// Empty, with the reason in `error` (which names the file), when there is nothing to analyse. Any
  /// thread.
  std::function<std::optional<Recording>(std::string& error)> read;
};

/// One file of one or two channels, or two of one: originator, terminator. `mono_side` is whose an only
/// channel is. Refused when it is no audio, holds none, or has channels that are no call's.
RecordingSource file_source(const std::vector<std::string>& files, std::size_t mono_side);

/// A folder's recordings, at any depth, in the order of their names; a file as it is. False, with the
/// reason in `error`, when there is no such folder or no recording in it.
bool find_recordings(const std::string& path, std::size_t mono_side,
                     std::vector<RecordingSource>& sources, std::string& error);

/// Made of the name alone: the same recording has the same in every run. Version 8 of RFC 9562.
media::Uuid recording_uuid(const std::string& name);

}  // namespace cv::tools
