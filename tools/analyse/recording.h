// What is analysed as one call: its name and the audio of its sides.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
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

  std::size_t samples() const { return std::max(sides[0].size(), sides[1].size()); }
};

/// Where a recording comes from.
struct RecordingSource {
  std::string name;  // also the path of the one file, when it is one
  std::vector<std::string>
      files;               // one of one or two channels, or two of one: originator, terminator
  uint16_t mono_side = 0;  // of the only channel
};

/// A folder's recordings, at any depth, in the order of their names; a file as it is. False, with the
/// reason in `error`, when there is no such folder or no recording in it.
bool find_recordings(const std::string& path, uint16_t mono_side,
                     std::vector<RecordingSource>& sources, std::string& error);

/// Empty, with the reason in `error` (which names the file), when it is no audio, holds none, or has
/// channels that are no call's.
std::optional<Recording> read_recording(const RecordingSource& source, std::string& error);

/// Made of the name alone: the same recording has the same in every run. Version 8 of RFC 9562.
media::Uuid recording_uuid(const std::string& name);

}  // namespace cv::tools
