#include "plain_packet_path.h"

#include <algorithm>
#include <utility>

#include "core/clock.h"

namespace cv::bench {

void PlainPacketPath::add_session(uint64_t id) {
  auto session = std::make_shared<Session>();
  session->id = id;
  session->created_us = session->last_activity_us = steady_clock().now_us();
  session->audit_position = m_audit_list.insert(m_audit_list.end(), session);
  m_sessions.emplace(id, session);
}

void PlainPacketPath::read_from(const void* data, std::size_t size) {
  if (size < sizeof(media::PacketHeader) || size > media::max_packet_bytes) return;
  auto buffer = std::make_shared<std::vector<unsigned char>>(media::max_packet_bytes);
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::copy(bytes, bytes + size, buffer->begin());
  buffer->resize(size);
  m_queue.push_back(std::move(buffer));
}

void PlainPacketPath::step(audio::SpectrumGeneratorCallback& callback) {
  if (m_sessions.size() > 10000) audit();
  const auto buffer = m_queue.front();
  m_queue.pop_front();
  const auto& header = *reinterpret_cast<const media::PacketHeader*>(buffer->data());
  if (header.marker != media::packet_marker || header.version != media::packet_version) return;
  if (header.type != media::PACKET_DATA) return;
  const auto& packet = static_cast<const media::DataPacket&>(header);
  if (buffer->size() == sizeof packet + packet.num * sizeof(int16_t)) on_data(packet, callback);
}

void PlainPacketPath::audit() {
  const int64_t now_us = steady_clock().now_us();
  while (!m_audit_list.empty() && m_audit_list.front()->last_activity_us + 300000000 <= now_us) {
    m_sessions.erase(m_audit_list.front()->id);
    m_audit_list.pop_front();
  }
}

void PlainPacketPath::on_data(const media::DataPacket& packet,
                              audio::SpectrumGeneratorCallback& callback) {
  const auto found = m_sessions.find(packet.id);
  if (found == m_sessions.end()) return;
  const std::shared_ptr<Session> session = found->second;
  uint32_t& last_seq = session->last_seq[packet.side()];
  if (last_seq != 0 && packet.seq <= last_seq) return;
  last_seq = packet.seq;
  session->last_activity_us =
      session->created_us + static_cast<int64_t>(packet.mt - session->start_mt);
  m_audit_list.splice(m_audit_list.end(), m_audit_list, session->audit_position);
  std::shared_ptr<Stream>& stream = session->streams[packet.side()];
  if (!stream) stream = std::make_shared<Stream>(Stream{packet.mt, {}});
  stream->generator.compute_spectrum(packet.samples(), 1, callback, nullptr);
}

}  // namespace cv::bench
