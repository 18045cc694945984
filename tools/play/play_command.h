// corvanth play: recordings as one call, sent to a media node in real time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/media_packet.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {

struct PlayOptions {
  std::string to;
  std::string report_to;  // empty: the call names no report address
  uint64_t rule = 0;
  std::string call_id;  // empty: made from the uuid
  std::string uuid;     // empty: a random one
  std::vector<std::string> features = {"samples", "activity"};
  std::string silent_side;         // empty: the one without a recording
  std::vector<std::string> files;  // originator, terminator
  double speed = 1;
};

/// The START packet's feature byte; empty for an unknown name. Names: samples, activity,
/// activity-originator, activity-terminator, none.
std::optional<uint8_t> feature_bits(const std::vector<std::string>& names);

/// 32 hexadecimal digits, with or without dashes, and nothing else.
std::optional<media::Uuid> parse_uuid(const std::string& text);

/// What is wrong with a feature's name or a uuid on the command line; empty: nothing.
std::string feature_complaint(const std::string& name);
std::string uuid_complaint(const std::string& text);

/// An exit status. A stop signal breaks the call off, with its TERM sent, as a failure.
int run_play(const PlayOptions& options);

}  // namespace cv::tools
