// RTP streams in packet captures: what there is, and the call that two of them make. Files of libpcap,
// pcapng among them. Any thread, each with its own file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/analyse/recording.h"
#include "tools/analyse/rtp_packet.h"

namespace cv::tools {

struct CapturedStream {
  RtpKey key;
  uint64_t packets = 0;
  uint64_t in_sequence = 0;  // of them, behind one with the number before
  int64_t first_us = 0;      // since the capture's first packet
  int64_t last_us = 0;
  std::set<uint8_t> payload_types;
  uint16_t newest_sequence = 0;

  bool has_g711() const;
  std::string payload_text() const;
};

struct Capture {
  /// In the order of their first packets. What never had two packets in sequence is none.
  std::vector<CapturedStream> streams;
  uint64_t frames = 0;
  uint64_t truncated = 0;  // frames of which too little was captured
  uint64_t fragments = 0;
  std::string ends_early;  // why the file could not be read to its end; empty: it was
};

/// Empty, with the reason in `error` (which names the file), when it is no capture or of a link type that
/// is not read.
std::optional<Capture> read_capture(const std::string& path, std::string& error);

/// A table of the streams.
std::string capture_table(const Capture& capture);
/// What could not be used, a line; empty: nothing.
std::string capture_faults(const Capture& capture);

/// By side: a stream, or several, one after another; none: the side is not there.
using CallStreams = std::array<std::vector<RtpKey>, 2>;

/// The streams that the choices (texts of StreamChoice; empty: none) name, each exactly one, or several
/// from one address to another of which each ends before the next begins: a source that took a new SSRC.
/// Without any choice: the only such stream with G.711, or the only two if each goes where the other comes
/// from, the earlier one being the originator's. Empty, with the reason in `error`.
std::optional<CallStreams> choose_streams(const Capture& capture,
                                          const std::array<std::string, 2>& choices,
                                          std::string& error);

/// The call of these streams, one at least, in the capture at `path`. The side that begins later is silent
/// until then; what was missing is in the recording's notes.
RecordingSource call_source(const std::string& path, const CallStreams& streams);

}  // namespace cv::tools
