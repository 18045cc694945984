#include "media/media_packet_writer.h"

#include <cstddef>
#include <cstring>

namespace cv::media {

namespace {

template <typename Packet>
Packet begin_packet(PacketType type, const CallKey& call, uint64_t mt_us) {
  Packet packet{};
  packet.marker = packet_marker;
  packet.type = type;
  packet.version = packet_version;
  packet.id = call.id;
  packet.uuid = call.uuid;
  packet.mt = mt_us;
  return packet;
}

template <typename Packet>
bool assemble(const Packet& packet, const void* tail, std::size_t tail_bytes, Datagram& out) {
  out.clear();
  if (sizeof packet + tail_bytes > max_packet_bytes) return false;
  out.resize(sizeof packet + tail_bytes);
  std::memcpy(out.data(), &packet, sizeof packet);
  if (tail_bytes != 0) std::memcpy(out.data() + sizeof packet, tail, tail_bytes);
  return true;
}

}  // namespace

bool write_start(const CallKey& call, uint64_t mt_us, const StartFields& fields, Datagram& out) {
  auto packet = begin_packet<StartPacket>(PACKET_START, call, mt_us);
  packet.param = fields.features;
  packet.flags = fields.flags;
  packet.ts = fields.ts;
  packet.sync_ts = fields.sync_ts;
  packet.sync_mt = fields.sync_mt;
  packet.rule = fields.rule;
  packet.report_addr = fields.report_addr;
  packet.report_port = fields.report_port;
  packet.call_id_length = static_cast<uint16_t>(fields.call_id.size());
  return assemble(packet, fields.call_id.data(), fields.call_id.size(), out);
}

bool write_data(const CallKey& call, uint64_t mt_us, const DataFields& fields, Datagram& out) {
  auto packet = begin_packet<DataPacket>(PACKET_DATA, call, mt_us);
  packet.param = fields.s ? DataPacket::param_s : 0;
  packet.flags = fields.side != 0 ? DataPacket::flag_terminator : 0;
  packet.seq = fields.seq;
  packet.off = fields.off;
  packet.num = static_cast<uint16_t>(fields.samples.size());
  return assemble(packet, fields.samples.data(), fields.samples.size_bytes(), out);
}

bool write_control(const CallKey& call, uint64_t mt_us, uint8_t command, Datagram& out) {
  auto packet = begin_packet<ControlPacket>(PACKET_CTRL, call, mt_us);
  packet.param = command;
  return assemble(packet, nullptr, 0, out);
}

bool write_feature_update(const CallKey& call, uint64_t mt_us, uint8_t features, Datagram& out) {
  auto packet = begin_packet<ControlPacket>(PACKET_CTRL, call, mt_us);
  packet.param = ControlPacket::command_features;
  packet.flags = ControlPacket::flag_update;
  return assemble(packet, &features, sizeof features, out);
}

bool write_terminate(const CallKey& call, uint64_t mt_us, Datagram& out) {
  return assemble(begin_packet<TerminatePacket>(PACKET_TERM, call, mt_us), nullptr, 0, out);
}

}  // namespace cv::media
