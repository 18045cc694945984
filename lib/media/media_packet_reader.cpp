#include "media/media_packet_reader.h"

#include <new>
#include <sstream>

#include "core/clock.h"
#include "core/prefetch.h"
#include "log/log.h"
#include "log/log_sinks.h"
#include "utils/utils_str.h"

namespace cv::media {

namespace {

template <typename Packet>
Packet& view(PacketBuffer& buffer) {
  return *reinterpret_cast<Packet*>(buffer.data);
}

char letter_or_dash(bool set, char letter) { return set ? letter : '-'; }

unsigned number(uint8_t byte) { return byte; }

utils::str::UuidText uuid_text(const PacketHeader& header) {
  return utils::str::UuidText(header.uuid.data());
}

template <typename MessageType, typename Packet>
void trace(int line, log::LocalLevel facility, const Packet& packet) {
  log::trace<MessageType>(CV_LOG_MODULE, line, facility, [&packet] { return trace_text(packet); });
}

}  // namespace

PacketReader::PacketReader(PacketReaderStatistic& statistic, PacketReaderListener& listener,
                           PacketLookAhead* look_ahead)
    : QueueIdleReader(statistic),
      m_packet_statistic(statistic),
      m_listener(&listener),
      m_look_ahead(look_ahead) {}

void PacketReader::read_from(const void* data, std::size_t size) {
  if (size < sizeof(PacketHeader)) return m_packet_statistic.min_length.increment();
  if (size > max_packet_bytes) return m_packet_statistic.max_length.increment();
  rc_ptr<PacketBuffer> buffer;
  try {
    buffer = new PacketBuffer;
  } catch (const PacketBuffer::BadAlloc&) {
    return m_packet_statistic.failed_allocation.increment();
  }
  buffer->append(data, size);
  push(std::move(buffer));
}

void PacketReader::run() {
  name_this_thread("packet reader");
  CV_LOG(SystemMessage) << "PACKETS_READER: thread [" << kernel_thread_id() << "] started";
  QueueIdleReader::run();
  if (const uint64_t count = m_out_of_memory.take_rest()) say_out_of_memory(count);
}

int PacketReader::stop() {
  if (!running()) return 0;
  const int error = QueueIdleReader::stop();
  if (error == 0) {
    CV_LOG(SystemMessage) << "PACKETS_READER: thread [" << kernel_thread_id() << "] stopped";
  } else {
    CV_LOG(WarningMessage) << "PACKETS_READER: thread [" << kernel_thread_id()
                           << "] stopped with error (" << error << ")";
  }
  return error;
}

void PacketReader::on_queue_read(rc_ptr<PacketBuffer> buffer) {
  // Nothing came within the wait: housekeeping has its turn in on_queue_idle().
  if (!buffer) return;
  if (m_look_ahead != nullptr) look_ahead();
  const auto& header = view<PacketHeader>(*buffer);
  if (header.marker != packet_marker) return m_packet_statistic.bad_marker.increment();
  if (header.version != packet_version) return m_packet_statistic.bad_version.increment();
  attempt([&] { dispatch(*buffer); });
}

// What a packet asks of memory is its own: the next one, of another call, may well be served.
template <typename Work>
void PacketReader::attempt(Work work) {
  try {
    work();
  } catch (const std::bad_alloc&) {
    m_out_of_memory.add(1);
  }
  if (m_out_of_memory.unsaid() == 0) return;
  if (const auto count = m_out_of_memory.take(steady_clock().now_us())) say_out_of_memory(*count);
}

void PacketReader::say_out_of_memory(uint64_t count) {
  CV_LOG(ErrorMessage) << "PACKETS_READER: out of memory, (" << count
                       << ") packets or time-outs were not processed to the end";
}

// The distances: a packet takes a few hundred nanoseconds, an answer from memory a hundred and more.
void PacketReader::look_ahead() {
  m_queue.look(17);
  if (const rc_ptr<PacketBuffer>* buffer = m_queue.peek(16)) {
    prefetch((*buffer)->data, sizeof(DataPacket));
    prefetch(&(*buffer)->length);
  }
  look_ahead(12, PacketLookAhead::Stage::table);
  look_ahead(8, PacketLookAhead::Stage::session);
  look_ahead(4, PacketLookAhead::Stage::stream);
  look_ahead(2, PacketLookAhead::Stage::samples);
}

void PacketReader::look_ahead(std::size_t distance, PacketLookAhead::Stage stage) {
  const rc_ptr<PacketBuffer>* buffer = m_queue.peek(distance);
  if (buffer == nullptr || (*buffer)->length < sizeof(DataPacket)) return;
  const auto& packet = view<DataPacket>(**buffer);
  if (packet.type == PACKET_DATA) m_look_ahead->on_packet_ahead(packet, stage);
}

// A record is viewed before its size is known to be right: the buffer behind it is larger than any
// record, and what lies behind the datagram can only make a size differ that differs anyway.
void PacketReader::dispatch(PacketBuffer& buffer) {
  switch (view<PacketHeader>(buffer).type) {
    case PACKET_START: {
      auto& packet = view<StartPacket>(buffer);
      if (size_matches(buffer, sizeof packet + packet.call_id_length)) notify(packet);
      break;
    }
    case PACKET_TERM: {
      auto& packet = view<TerminatePacket>(buffer);
      if (size_matches(buffer, sizeof packet)) notify(packet);
      break;
    }
    case PACKET_DATA: {
      auto& packet = view<DataPacket>(buffer);
      if (size_matches(buffer, sizeof packet + packet.num * sizeof(int16_t))) notify(packet);
      break;
    }
    case PACKET_CTRL: {
      auto& packet = view<ControlPacket>(buffer);
      const std::size_t features_bytes = packet.is_feature_update() ? control_features_bytes : 0;
      if (size_matches(buffer, sizeof packet + features_bytes)) notify(packet);
      break;
    }
    default:
      m_packet_statistic.unknown_type.increment();
  }
}

bool PacketReader::size_matches(const PacketBuffer& buffer, std::size_t expected_bytes) {
  if (buffer.length == expected_bytes) return true;
  m_packet_statistic.corrupted_size.increment();
  return false;
}

bool PacketReader::on_queue_idle() {
  bool worked = false;
  attempt([&] { worked = m_listener->on_packet_idle(); });
  return worked;
}

void PacketReader::on_queue_try() {
  attempt([this] { m_listener->on_packet_try(); });
}

void PacketReader::notify(StartPacket& packet) {
  m_packet_statistic.start_packets.increment();
  trace<log::SystemMessage>(__LINE__, log::LocalLevel::LOCAL1, packet);
  m_listener->on_packet(packet);
}

void PacketReader::notify(TerminatePacket& packet) {
  m_packet_statistic.term_packets.increment();
  trace<log::SystemMessage>(__LINE__, log::LocalLevel::LOCAL1, packet);
  m_listener->on_packet(packet);
}

void PacketReader::notify(DataPacket& packet) {
  m_packet_statistic.data_packets.increment();
  // The one packet that comes by the thousand: its text is not even built when nobody wants it.
  if (log::Logger::m_instance.level >= log::Level::TRACE) {
    trace<log::TraceMessage>(__LINE__, log::LocalLevel::LOCAL7, packet);
  }
  m_listener->on_packet(packet);
}

void PacketReader::notify(ControlPacket& packet) {
  m_packet_statistic.ctrl_packets.increment();
  trace<log::SystemMessage>(__LINE__, log::LocalLevel::LOCAL1, packet);
  m_listener->on_packet(packet);
}

std::string trace_text(const StartPacket& packet) {
  std::ostringstream text;
  text << "START | mt: " << packet.mt << ", v: " << number(packet.version)
       << ", f: " << letter_or_dash(packet.has_rule(), 'R')
       << letter_or_dash((packet.flags & StartPacket::flag_n) != 0, 'N')
       << ", uuid: " << uuid_text(packet) << ", ts: " << packet.ts
       << ", leg: " << (packet.outbound() ? "outbound" : "inbound")
       << ", call id: " << packet.call_id() << ", id: " << packet.id
       << ", sync ts: " << packet.sync_ts << ", sync mt: " << packet.sync_mt
       << ", ft: " << feature_letters(packet.features());
  if (packet.has_rule()) text << ", rule: " << packet.rule;
  return text.str();
}

std::string trace_text(const TerminatePacket& packet) {
  std::ostringstream text;
  text << "TERM  | mt: " << packet.mt << ", v: " << number(packet.version)
       << ", f: " << number(packet.flags) << ", uuid: " << uuid_text(packet);
  return text.str();
}

std::string trace_text(const DataPacket& packet) {
  std::ostringstream text;
  text << "DATA  | mt: " << packet.mt << ", v: " << number(packet.version)
       << ", f: " << letter_or_dash((packet.param & DataPacket::param_s) != 0, 'S')
       << ", uuid: " << uuid_text(packet) << ", side: " << packet.side() << ", seq: " << packet.seq
       << ", num: " << packet.num << ", off: " << packet.off;
  return text.str();
}

std::string trace_text(const ControlPacket& packet) {
  std::ostringstream text;
  text << "CTRL  | mt: " << packet.mt << ", v: " << number(packet.version)
       << ", f: " << number(packet.flags) << ", c: " << number(packet.command())
       << ", uuid: " << uuid_text(packet);
  if (packet.is_feature_update()) text << ", ft: " << feature_letters(packet.features());
  return text.str();
}

}  // namespace cv::media
