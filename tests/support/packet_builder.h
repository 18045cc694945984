// Calls and their datagrams for tests, and views of datagrams as packets.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <stdexcept>

#include "core/buffer.h"
#include "media/media_packet.h"
#include "media/media_packet_reader.h"
#include "media/media_packet_writer.h"

namespace cv::test {

using media::Datagram;

/// The packets of one call; each operation returns a whole datagram. Times are media time.
class CallPackets {
 public:
  /// Calls of different numbers differ in id and uuid; `number` is the id and the uuid's last byte.
  explicit CallPackets(uint8_t number = 1) {
    m_call.id = number;
    m_call.uuid = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                   0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, number};
  }
  CallPackets(uint64_t id, const media::Uuid& uuid) : m_call{id, uuid} {}

  const media::CallKey& key() const { return m_call; }

  Datagram start(const media::StartFields& fields, uint64_t mt_us = 0) const {
    return written(media::write_start, mt_us, fields);
  }
  /// Both analyses on, for both sides.
  Datagram start(uint64_t mt_us = 0) const {
    return start(
        {.features = media::features_sample_detection | media::features_activity_detection}, mt_us);
  }
  Datagram data(const media::DataFields& fields, uint64_t mt_us = 0) const {
    return written(media::write_data, mt_us, fields);
  }
  Datagram data(uint16_t side, uint32_t seq, std::span<const int16_t> samples,
                uint64_t mt_us = 0) const {
    return data({.side = side, .seq = seq, .samples = samples}, mt_us);
  }
  /// Without samples.
  Datagram data(uint16_t side, uint32_t seq, uint64_t mt_us = 0) const {
    return data(side, seq, std::span<const int16_t>(), mt_us);
  }
  Datagram control(uint8_t command, uint64_t mt_us = 0) const {
    return written(media::write_control, mt_us, command);
  }
  Datagram feature_update(uint8_t features, uint64_t mt_us = 0) const {
    return written(media::write_feature_update, mt_us, features);
  }
  Datagram terminate(uint64_t mt_us = 0) const { return written(media::write_terminate, mt_us); }

 private:
  template <typename Write, typename... Fields>
  Datagram written(Write write, uint64_t mt_us, const Fields&... fields) const {
    Datagram out;
    write(m_call, mt_us, fields..., out);
    return out;
  }

  media::CallKey m_call;
};

/// A datagram of at most max_packet_bytes in storage of its own, viewed as one of the packets.
template <typename Packet>
class Viewed {
 public:
  explicit Viewed(const Datagram& datagram) {
    std::memset(m_buffer.data, 0, sizeof m_buffer.data);
    m_buffer.append(datagram.data(), datagram.size());
  }
  Packet& operator*() { return *reinterpret_cast<Packet*>(m_buffer.data); }
  Packet* operator->() { return &**this; }

 private:
  mem::Buffer<media::max_packet_bytes> m_buffer;
};

/// Passes a whole datagram of a known type to a listener, as the packet reader would.
inline void deliver(media::PacketReaderListener& listener, const Datagram& datagram) {
  const auto pass = [&]<typename Packet>(Viewed<Packet> packet) { listener.on_packet(*packet); };
  switch (datagram.at(offsetof(media::PacketHeader, type))) {
    case media::PACKET_START:
      return pass(Viewed<media::StartPacket>(datagram));
    case media::PACKET_TERM:
      return pass(Viewed<media::TerminatePacket>(datagram));
    case media::PACKET_DATA:
      return pass(Viewed<media::DataPacket>(datagram));
    case media::PACKET_CTRL:
      return pass(Viewed<media::ControlPacket>(datagram));
    default:
      throw std::logic_error("no such packet");
  }
}

}  // namespace cv::test
