#include "tools/analyse/capture.h"

#include <algorithm>
#include <map>
#include <memory>
#include <pcap/pcap.h>

#include "tools/analyse/rtp_stream.h"
#include "tools/audio_file.h"
#include "tools/text_table.h"

namespace cv::tools {

namespace {

using File = std::unique_ptr<pcap_t, decltype(&pcap_close)>;

File open_capture(const std::string& path, std::string& error) {
  char reason[PCAP_ERRBUF_SIZE] = {};
  File file(pcap_open_offline(path.c_str(), reason), &pcap_close);
  if (!file) {
    error = reason;
    // libpcap names the file for some errors only.
    if (error.find(path) == error.npos) error.insert(0, path + ": ");
    return file;
  }
  const int link_type = pcap_datalink(file.get());
  if (link_type_known(link_type)) return file;
  const char* name = pcap_datalink_val_to_name(link_type);
  error = path + ": packets of link type " +
          (name != nullptr ? std::string(name) : std::to_string(link_type)) + " are not read";
  return {nullptr, &pcap_close};
}

/// A file may claim any.
int64_t time_us(const timeval& time) {
  constexpr int64_t most_s = RtpStream::max_arrival_us / 1000000 - 1;
  return std::clamp<int64_t>(time.tv_sec, 0, most_s) * 1000000 +
         std::clamp<int64_t>(time.tv_usec, 0, 999999);
}

/// Calls `on_frame(frame, arrival_us)` for each; why it ended early, or nothing.
template <typename OnFrame>
std::string for_each_frame(pcap_t* file, const OnFrame& on_frame) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int result = 0;
  while ((result = pcap_next_ex(file, &header, &data)) == 1) {
    on_frame(std::span<const uint8_t>(data, header->caplen), time_us(header->ts));
  }
  return result == PCAP_ERROR ? pcap_geterr(file) : "";
}

/// Without the empty ones.
std::string joined(const std::vector<std::string>& texts) {
  std::string out;
  for (const std::string& text : texts) {
    if (!out.empty() && !text.empty()) out += ", ";
    out += text;
  }
  return out;
}

double seconds(int64_t us) { return static_cast<double>(us) / 1e6; }

void count(const RtpPacket& packet, int64_t at_us, CapturedStream& stream) {
  if (stream.packets++ == 0) {
    stream.key = packet.key;
    stream.first_us = at_us;
  } else {
    stream.in_sequence += packet.sequence == static_cast<uint16_t>(stream.newest_sequence + 1);
  }
  stream.last_us = at_us;
  stream.newest_sequence = packet.sequence;
  stream.payload_types.insert(packet.payload_type);
}

/// Empty when there is none.
std::string counted(uint64_t number, const char* what) {
  return number == 0 ? "" : std::to_string(number) + " " + what;
}

std::string fault_text(const RtpFaults& faults) {
  return joined({counted(faults.lost, "packet(s) lost"), counted(faults.late, "late or repeated"),
                 counted(faults.other_type, "of other payload types"),
                 counted(faults.stray, "stray"),
                 counted(faults.restarts, "restart(s) of sequence or time stamps"),
                 counted(faults.cut_gaps, "gap(s) cut to 300 s")});
}

/// Silence in front of the side that begins later: both sides have the call's time.
void align(const std::array<RtpStream, 2>& streams, Recording& call) {
  const auto a = streams[0].first_arrival_us();
  const auto b = streams[1].first_arrival_us();
  if (!a || !b) return;
  const std::size_t later = *a < *b ? 1 : 0;
  const int64_t gap = std::abs(*a - *b) / us_per_sample;
  const int64_t samples = std::min(gap, RtpStream::max_gap_samples);
  if (samples < gap)
    call.notes.push_back(call.name + ": one side begins later than 300 s: cut to that");
  auto& side = call.sides[later];
  side.insert(side.begin(), static_cast<std::size_t>(samples), 0);
}

std::string side_text(const std::vector<RtpKey>& streams) {
  std::vector<std::string> texts;
  texts.reserve(streams.size());
  for (const RtpKey& key : streams) texts.push_back(stream_text(key));
  return joined(texts);
}

std::string call_name(const std::string& path, const CallStreams& streams) {
  std::string name = path;
  for (const auto& stream : streams) {
    if (!stream.empty()) name.append(1, ' ').append(side_text(stream));
  }
  return name;
}

std::optional<Recording> read_call(const std::string& path, const CallStreams& streams,
                                   std::string& error) {
  const File file = open_capture(path, error);
  if (!file) return std::nullopt;
  const int link_type = pcap_datalink(file.get());
  std::array<RtpStream, 2> assembled;
  for_each_frame(file.get(), [&](std::span<const uint8_t> frame, int64_t arrival_us) {
    RtpPacket packet;
    if (read_frame(link_type, frame, packet) != FrameKind::rtp) return;
    for (std::size_t side = 0; side < 2; ++side) {
      const auto& own = streams[side];
      if (std::find(own.begin(), own.end(), packet.key) == own.end()) continue;
      assembled[side].take(packet, arrival_us);
    }
  });
  Recording call;
  call.name = call_name(path, streams);
  for (std::size_t side = 0; side < 2; ++side) {
    if (streams[side].empty()) continue;
    RtpStream& stream = assembled[side];
    stream.finish();
    const std::string name = path + ": " + side_text(streams[side]) + ": ";
    if (stream.too_long()) {
      error = name + "its audio would last more than 24 hours";
      return std::nullopt;
    }
    if (const std::string faults = fault_text(stream.faults()); !faults.empty()) {
      call.notes.push_back(name + faults);
    }
    call.sides[side] = std::move(stream.samples());
    call.there[side] = true;
  }
  align(assembled, call);
  return call;
}

}  // namespace

bool CapturedStream::has_g711() const {
  return std::any_of(payload_types.begin(), payload_types.end(), is_g711);
}

std::string CapturedStream::payload_text() const {
  std::string text;
  for (const uint8_t type : payload_types) {
    if (!text.empty()) text += ' ';
    text += type == payload_type_mulaw  ? "mu-law"
            : type == payload_type_alaw ? "A-law"
                                        : std::to_string(type);
  }
  return has_g711() ? text : text + " (not analysed)";
}

std::optional<Capture> read_capture(const std::string& path, std::string& error) {
  const File file = open_capture(path, error);
  if (!file) return std::nullopt;
  const int link_type = pcap_datalink(file.get());
  Capture capture;
  std::map<RtpKey, CapturedStream> streams;
  std::optional<int64_t> start_us;
  capture.ends_early =
      for_each_frame(file.get(), [&](std::span<const uint8_t> frame, int64_t arrival_us) {
        ++capture.frames;
        if (!start_us) start_us = arrival_us;
        RtpPacket packet;
        const FrameKind kind = read_frame(link_type, frame, packet);
        capture.truncated += kind == FrameKind::truncated;
        capture.fragments += kind == FrameKind::fragment;
        if (kind == FrameKind::rtp) count(packet, arrival_us - *start_us, streams[packet.key]);
      });
  for (const auto& [key, stream] : streams) {
    if (stream.in_sequence != 0) capture.streams.push_back(stream);
  }
  std::stable_sort(capture.streams.begin(), capture.streams.end(),
                   [](const auto& a, const auto& b) { return a.first_us < b.first_us; });
  return capture;
}

std::string capture_table(const Capture& capture) {
  std::vector<std::vector<std::string>> rows;
  for (const CapturedStream& stream : capture.streams) {
    rows.push_back({stream_text(stream.key), std::to_string(stream.packets),
                    fixed(seconds(stream.first_us), 2), fixed(seconds(stream.last_us), 2),
                    stream.payload_text()});
  }
  return text_table({{"stream"}, {"packets", true}, {"from s", true}, {"to s", true}, {"payload"}},
                    rows);
}

std::string capture_faults(const Capture& capture) {
  return joined({counted(capture.truncated, "packet(s) captured in part only"),
                 counted(capture.fragments, "fragment(s) of packets"),
                 capture.ends_early.empty() ? "" : "it ends early: " + capture.ends_early});
}

RecordingSource call_source(const std::string& path, const CallStreams& streams) {
  return {call_name(path, streams),
          [=](std::string& error) { return read_call(path, streams, error); }};
}

}  // namespace cv::tools
