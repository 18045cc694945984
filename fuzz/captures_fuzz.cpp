// Frames of a capture to RTP packets to a stream's audio: what others' machines sent, whatever its lengths
// claim. Reads nothing outside a frame (each has a heap block of its own, for the sanitizer to see), and
// makes no more audio than packets and their longest gaps can hold.
#include <cstring>
#include <memory>
#include <pcap/dlt.h>

#include "fuzzing.h"
#include "tools/analyse/rtp_packet.h"
#include "tools/analyse/rtp_stream.h"

namespace cv::fuzz {
namespace {

using namespace tools;

constexpr int link_types[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                              DLT_IPV4,   DLT_IPV6,      DLT_NULL,       DLT_LOOP};

constexpr std::size_t most_frames = 40;  // at up to 300 s of silence each

void append_be16(Bytes& out, std::size_t value) {
  out.push_back(static_cast<unsigned char>(value >> 8));
  out.push_back(static_cast<unsigned char>(value));
}

/// An IPv4 packet with a whole UDP datagram in it.
Bytes udp_packet(const Bytes& payload) {
  Bytes packet{0x45, 0};
  append_be16(packet, 28 + payload.size());
  packet.insert(packet.end(), {0, 0, 0, 0, 64, 17, 0, 0, 10, 0, 0, 1, 10, 0, 0, 2});
  for (const std::size_t number :
       {std::size_t{4000}, std::size_t{5000}, 8 + payload.size(), std::size_t{0}}) {
    append_be16(packet, number);
  }
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

/// RTP of one of two sources, as well formed as the input wants it.
Bytes rtp_packet(FuzzedDataProvider& input) {
  Bytes packet{
      one_of(input, {uint8_t{0x80}, uint8_t{0x90}, uint8_t{0xA0}, uint8_t{0x81}, uint8_t{0xBF}}),
      one_of(input, {uint8_t{0}, uint8_t{8}, uint8_t{0x80}, uint8_t{13}, uint8_t{101}})};
  append_be16(packet, input.ConsumeIntegral<uint16_t>());
  const auto timestamp = input.ConsumeIntegral<uint32_t>();
  append_be16(packet, timestamp >> 16);
  append_be16(packet, timestamp);
  packet.insert(packet.end(), {0, 0, 0, input.ConsumeBool()});
  const Bytes rest = take_bytes(input, 200);
  packet.insert(packet.end(), rest.begin(), rest.end());
  return packet;
}

Bytes make_frame(FuzzedDataProvider& input, int link_type) {
  if (input.ConsumeBool()) return take_bytes(input, 300);
  Bytes frame;
  if (link_type == DLT_EN10MB) {
    frame.assign(12, 0);
    append_be16(frame, 0x0800);
  }
  const Bytes packet = udp_packet(rtp_packet(input));
  frame.insert(frame.end(), packet.begin(), packet.end());
  frame.resize(frame.size() - input.ConsumeIntegralInRange<std::size_t>(0, frame.size()));
  return frame;
}

/// The packet of a frame that has gone: its payload is the caller's.
bool read_one(int link_type, const Bytes& bytes, RtpPacket& packet, Bytes& payload) {
  const auto exact = std::make_unique<uint8_t[]>(bytes.size());
  if (!bytes.empty()) std::memcpy(exact.get(), bytes.data(), bytes.size());
  const std::span<const uint8_t> frame(exact.get(), bytes.size());
  if (read_frame(link_type, frame, packet) != FrameKind::rtp) return false;
  FUZZ_CHECK(packet.payload.empty() ||
             (packet.payload.data() >= frame.data() &&
              packet.payload.data() + packet.payload.size() <= frame.data() + frame.size()));
  const auto choice = StreamChoice::parse(stream_text(packet.key));
  FUZZ_CHECK(choice && choice->matches(packet.key));
  payload.assign(packet.payload.begin(), packet.payload.end());
  packet.payload = payload;
  return true;
}

void play(FuzzedDataProvider& input) {
  const int link_type = one_of(input, link_types);
  RtpStream stream;
  std::size_t taken = 0;
  std::size_t payload_bytes = 0;
  int64_t arrival_us = 0;
  for (std::size_t n = 0; n < most_frames && input.remaining_bytes() > 0; ++n) {
    RtpPacket packet;
    Bytes payload;
    if (!read_one(link_type, make_frame(input, link_type), packet, payload)) continue;
    arrival_us = input.ConsumeBool() ? arrival_us + 20000
                                     : input.ConsumeIntegralInRange<int64_t>(
                                           -RtpStream::max_arrival_us, RtpStream::max_arrival_us);
    stream.take(packet, arrival_us);
    ++taken;
    payload_bytes += payload.size();
  }
  stream.finish();
  const RtpFaults& faults = stream.faults();
  FUZZ_CHECK(faults.late + faults.other_type + faults.stray <= taken);
  FUZZ_CHECK(stream.samples().size() <= payload_bytes + taken * RtpStream::max_gap_samples);
  FUZZ_CHECK(stream.samples().size() <= RtpStream::max_samples);
  FUZZ_CHECK(stream.samples().empty() || stream.first_arrival_us());
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  cv::fuzz::play(input);
  return 0;
}
