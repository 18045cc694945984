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

/// Calls `on_frame(frame, arrival_us)` for each; why it ended early, or nothing.
template <typename OnFrame>
std::string for_each_frame(pcap_t* file, const OnFrame& on_frame) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int result = 0;
  while ((result = pcap_next_ex(file, &header, &data)) == 1) {
    on_frame(std::span<const uint8_t>(data, header->caplen),
             int64_t{header->ts.tv_sec} * 1000000 + header->ts.tv_usec);
  }
  return result == PCAP_ERROR ? pcap_geterr(file) : "";
}

std::string joined(const std::vector<std::string>& texts) {
  std::string out;
  for (const std::string& text : texts) {
    if (!out.empty()) out += ", ";
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

std::string types_text(const CapturedStream& stream) {
  std::string text;
  for (const uint8_t type : stream.payload_types) {
    if (!text.empty()) text += ' ';
    text += type == payload_type_mulaw  ? "mu-law"
            : type == payload_type_alaw ? "A-law"
                                        : std::to_string(type);
  }
  return stream.has_g711() ? text : text + " (not analysed)";
}

bool opposite(const CapturedStream& a, const CapturedStream& b) {
  return a.key.from.address == b.key.to.address && a.key.to.address == b.key.from.address;
}

std::optional<RtpKey> choose_one(const Capture& capture, const std::string& choice_text,
                                 std::string& error) {
  const auto choice = StreamChoice::parse(choice_text);
  if (!choice) {
    error = "\"" + choice_text + "\" names no stream; --list shows how they are written";
    return std::nullopt;
  }
  std::vector<const CapturedStream*> matching;
  for (const CapturedStream& stream : capture.streams) {
    if (choice->matches(stream.key)) matching.push_back(&stream);
  }
  if (matching.size() == 1 && matching[0]->has_g711()) return matching[0]->key;
  if (matching.size() == 1) {
    error = stream_text(matching[0]->key) + " carries payload type " + types_text(*matching[0]) +
            "; mu-law (0) and A-law (8) are";
    return std::nullopt;
  }
  error = "\"" + choice_text + "\" is " + std::to_string(matching.size()) + " streams";
  for (const CapturedStream* stream : matching)
    error.append("\n  ").append(stream_text(stream->key));
  return std::nullopt;
}

std::string fault_text(const RtpFaults& faults) {
  std::vector<std::string> texts;
  const auto add = [&](uint64_t number, const char* what) {
    if (number != 0) texts.push_back(std::to_string(number) + what);
  };
  add(faults.lost, " packet(s) lost");
  add(faults.late, " late or repeated");
  add(faults.other_type, " of other payload types");
  add(faults.stray, " stray");
  add(faults.restarts, " restart(s) of sequence or time stamps");
  add(faults.cut_gaps, " gap(s) cut to 300 s");
  return joined(texts);
}

/// Silence in front of the side that begins later: both sides have the call's time.
void align(const std::array<RtpStream, 2>& streams, Recording& call) {
  const auto a = streams[0].first_arrival_us();
  const auto b = streams[1].first_arrival_us();
  if (!a || !b) return;
  const std::size_t later = *a < *b ? 1 : 0;
  const int64_t gap_us = std::abs(*a - *b);
  const int64_t samples = std::min(gap_us * audio_rate_hz / 1000000, RtpStream::max_gap_samples);
  auto& side = call.sides[later];
  side.insert(side.begin(), static_cast<std::size_t>(samples), 0);
}

std::string call_name(const std::string& path, const CallStreams& streams) {
  std::string name = path;
  for (const auto& stream : streams) {
    if (stream) name.append(1, ' ').append(stream_text(*stream));
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
      if (streams[side] == packet.key) assembled[side].take(packet, arrival_us);
    }
  });
  Recording call;
  call.name = call_name(path, streams);
  for (std::size_t side = 0; side < 2; ++side) {
    if (!streams[side]) continue;
    RtpStream& stream = assembled[side];
    stream.finish();
    const std::string name = path + ": " + stream_text(*streams[side]) + ": ";
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
                    types_text(stream)});
  }
  return text_table({{"stream"}, {"packets", true}, {"from s", true}, {"to s", true}, {"payload"}},
                    rows);
}

std::string capture_faults(const Capture& capture) {
  std::vector<std::string> faults;
  const auto add = [&](uint64_t number, const char* what) {
    if (number != 0) faults.push_back(std::to_string(number) + what);
  };
  add(capture.truncated, " packet(s) captured in part only");
  add(capture.fragments, " fragment(s) of packets");
  if (!capture.ends_early.empty()) faults.push_back("it ends early: " + capture.ends_early);
  return joined(faults);
}

std::optional<CallStreams> choose_streams(const Capture& capture,
                                          const std::array<std::string, 2>& choices,
                                          std::string& error) {
  CallStreams chosen;
  if (!choices[0].empty() || !choices[1].empty()) {
    for (std::size_t side = 0; side < 2; ++side) {
      if (choices[side].empty()) continue;
      chosen[side] = choose_one(capture, choices[side], error);
      if (!chosen[side]) return std::nullopt;
    }
    if (chosen[0] != chosen[1]) return chosen;
    error = "both sides are one stream";
    return std::nullopt;
  }
  std::vector<const CapturedStream*> audio;
  for (const CapturedStream& stream : capture.streams) {
    if (stream.has_g711()) audio.push_back(&stream);
  }
  const bool call = audio.size() == 2 && opposite(*audio[0], *audio[1]);
  if (audio.size() == 1 || call) {
    for (std::size_t i = 0; i < audio.size(); ++i) chosen[i] = audio[i]->key;
    return chosen;
  }
  if (audio.empty()) {
    error = "there is no stream of G.711 in it";
  } else {
    error = "there are ";
    error += std::to_string(audio.size());
    error += " streams in it: pick with --originator and --terminator; --list shows them";
  }
  return std::nullopt;
}

RecordingSource call_source(const std::string& path, const CallStreams& streams) {
  return {call_name(path, streams),
          [=](std::string& error) { return read_call(path, streams, error); }};
}

}  // namespace cv::tools
