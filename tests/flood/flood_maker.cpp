#include "flood/flood_maker.h"

#include <algorithm>
#include <cstring>

#include "media/media_packet.h"

namespace cv::test {

namespace {

constexpr uint8_t all_features =
    media::features_sample_detection | media::features_activity_detection;

void put(media::Datagram& out, std::size_t at, const void* value, std::size_t size) {
  if (at + size <= out.size()) std::memcpy(out.data() + at, value, size);
}

}  // namespace

void FloodMaker::see(std::span<const unsigned char> packet) {
  if (packet.size() > offsetof(media::PacketHeader, type) &&
      packet[offsetof(media::PacketHeader, type)] == media::PACKET_TERM) {
    m_seen_count = 0;
  }
  m_seen[m_seen_count++ % m_seen.size()].assign(packet.begin(), packet.end());
}

void FloodMaker::make(media::Datagram& out) {
  switch (m_made++ % 4) {
    case 0:
      return make_noise(out);
    case 1:
      return make_cut(out);
    case 2:
      out = any_seen();
      return;
    default:
      make_spoofed(out);
  }
}

/// Random bytes; for the greater part those that the first checks look at are right.
void FloodMaker::make_noise(media::Datagram& out) {
  out.resize(1 + draw(max_datagram_bytes));
  for (std::size_t at = 0; at < out.size(); at += sizeof(uint64_t)) {
    const uint64_t noise = m_random();
    put(out, at, &noise, std::min(sizeof noise, out.size() - at));
  }
  const std::size_t right = draw(4);
  const uint8_t type = static_cast<uint8_t>(media::PACKET_START + draw(4));
  if (right > 0) put(out, offsetof(media::PacketHeader, marker), &media::packet_marker, 4);
  if (right > 1) put(out, offsetof(media::PacketHeader, version), &media::packet_version, 1);
  if (right > 2) put(out, offsetof(media::PacketHeader, type), &type, 1);
}

void FloodMaker::make_cut(media::Datagram& out) {
  out = any_seen();
  out.resize(1 + draw(out.size() - 1));
}

void FloodMaker::make_spoofed(media::Datagram& out) {
  m_calls == SpoofedCalls::good ? make_of_good_call(out) : make_of_made_up_call(out);
}

void FloodMaker::make_of_made_up_call(media::Datagram& out) {
  const bool few = m_calls == SpoofedCalls::few;
  media::CallKey call;
  call.id = few ? draw(few_calls) : m_random();
  std::memcpy(call.uuid.data(), &call.id, sizeof call.id);
  // Far ahead, a session seems active for ever; of a call of one packet it does not matter.
  const uint64_t mt_us = few && draw(2) == 0 ? m_random() : 0;
  switch (draw(4)) {
    case 0: {
      media::StartFields fields;
      fields.features = all_features;
      fields.flags = media::StartPacket::flag_rule;
      fields.rule = few ? 1 : m_random();
      fields.report_addr = static_cast<uint32_t>(m_random());
      fields.report_port = static_cast<uint16_t>(m_random());
      media::write_start(call, mt_us, fields, out);
      return;
    }
    case 1: {
      media::DataFields fields;
      fields.side = static_cast<uint16_t>(draw(2));
      fields.seq = static_cast<uint32_t>(m_random());
      fields.samples = any_audio();
      media::write_data(call, mt_us, fields, out);
      return;
    }
    case 2:
      media::write_feature_update(call, mt_us, all_features, out);
      return;
    default:
      media::write_terminate(call, mt_us, out);
  }
}

void FloodMaker::make_of_good_call(media::Datagram& out) {
  const media::Datagram& seen = any_seen();
  media::CallKey call;
  std::memcpy(&call.id, seen.data() + offsetof(media::PacketHeader, id), sizeof call.id);
  std::memcpy(call.uuid.data(), seen.data() + offsetof(media::PacketHeader, uuid),
              sizeof call.uuid);
  switch (draw(3)) {
    case 0: {
      media::DataFields fields;
      fields.side = static_cast<uint16_t>(draw(2));
      fields.seq = UINT32_MAX;
      fields.samples = any_audio();
      media::write_data(call, 0, fields, out);
      return;
    }
    case 1:
      media::write_feature_update(call, 0, 0, out);
      return;
    default:
      media::write_terminate(call, 0, out);
  }
}

/// Noise: no sample is recognised in it, but every analyser has its work.
std::span<const int16_t> FloodMaker::any_audio() {
  for (int16_t& sample : m_audio) sample = static_cast<int16_t>(m_random());
  return m_audio;
}

}  // namespace cv::test
