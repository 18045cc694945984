// What the node keeps of a call: the session, its two streams.
//
// Both are created and changed on the packet reader's thread alone; other threads may hold them
// through rc_ptr and read what does not change after creation (uuid, time stamp, call id, side).
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <memory_resource>
#include <new>
#include <string>
#include <utility>

#include "core/reference_countable.h"
#include "media/media_packet.h"

namespace cv::media {

class Session;

/// The least recently refreshed session first.
using AuditList = std::pmr::list<rc_ptr<Session>>;

/// A call, or a zombie: the place holder of a call whose packets are to be ignored.
class Session : public ReferenceCountable {
 public:
  Session(const StartPacket& packet, int64_t now_us)
      : m_uuid(packet.uuid),
        m_id(packet.id),
        m_ts(packet.ts),
        m_start_mt(packet.mt),
        m_created_us(now_us),
        m_call_id(packet.call_id()),
        m_last_activity_us(now_us) {}

  struct Zombie {};
  Session(Zombie, const PacketHeader& header, int64_t now_us)
      : m_uuid(header.uuid),
        m_id(header.id),
        m_ts(0),
        m_start_mt(header.mt),
        m_created_us(now_us),
        m_last_activity_us(now_us),
        m_zombie(true) {}

  Uuid m_uuid;
  uint64_t m_id;
  uint64_t m_ts;         // as START carried it
  uint64_t m_start_mt;   // media time of the packet that created the session, microseconds
  int64_t m_created_us;  // monotonic clock
  std::array<uint32_t, 2> m_last_seq{};  // by side, 0 until the first DATA
  std::string m_call_id;
  int64_t m_last_activity_us;  // on the monotonic clock's scale; media time may carry it ahead
  AuditList::iterator m_audit_position;  // the list's end when the session is in none
  bool m_zombie = false;
};

/// The audio of one call side.
class Stream : public ReferenceCountable {
 public:
  explicit Stream(const DataPacket& packet) : m_start_mt(packet.mt), m_side(packet.side()) {}

  uint64_t m_start_mt;  // media time of the packet that created the stream, microseconds
  uint16_t m_side;      // 0 originator, 1 terminator
};

class StreamSession : public Session {
 public:
  using Session::Session;

  std::array<rc_ptr<Stream>, 2> m_streams;  // by side, empty until the side's first DATA
};

/// A new T, or null when the memory cannot be had.
template <typename T, typename... Arguments>
T* create_or_null(Arguments&&... arguments) {
  try {
    return new T(std::forward<Arguments>(arguments)...);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace cv::media
