// The tables of calls in the plainest way: what each datagram, in order of arrival, must do to every
// counter and which hooks it must call. The yardstick of the packet reader and the session manager; it
// shares nothing with them but the layout of their counters. Calls that want no analysis are refused.
#pragma once

#include <cstdint>
#include <cstring>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include "media/media_packet_reader.h"
#include "media/media_session_manager.h"

namespace cv::test {

enum class CallHook { created, media, control, terminated, timed_out };

class PlainCalls {
 public:
  void deliver(const std::vector<unsigned char>& datagram, uint64_t now_us) {
    m_bytes = &datagram;
    m_now = now_us;
    const std::size_t size = datagram.size();
    if (size < 40) return reader.min_length.increment();
    if (size > 1376) return reader.max_length.increment();
    reader.passed.increment();
    if (field<uint32_t>(0) != 0x00FF00FF) return reader.bad_marker.increment();
    if (field<uint8_t>(5) != 2) return reader.bad_version.increment();
    switch (field<uint8_t>(4)) {
      case 0x81:
        if (size < 80 || size != 80u + field<uint16_t>(78)) break;
        reader.start_packets.increment();
        return start();
      case 0x82:
        if (size != 40) break;
        reader.term_packets.increment();
        return terminate();
      case 0x83:
        if (size < 50 || size != 50u + 2u * field<uint16_t>(48)) break;
        reader.data_packets.increment();
        return data();
      case 0x84: {
        const bool update = field<uint8_t>(7) >= 0x80 && field<uint8_t>(6) == 0;
        if (size != (update ? 41 : 40)) break;
        reader.ctrl_packets.increment();
        return control();
      }
      default:
        return reader.unknown_type.increment();
    }
    reader.corrupted_size.increment();
  }

  /// What the reader does when its queue is empty.
  void idle(uint64_t now_us) {
    m_now = now_us;
    sessions.audit_calls.increment();
    int removed = 0;
    while (removed < 10 && !m_calls.empty() && m_calls.front().activity + 300000000 <= now_us) {
      call_hook(CallHook::timed_out, m_calls.front());
      erase(m_calls.begin());
      ++removed;
    }
    if (removed > 0) sessions.audit_executions.increment();
  }

  /// Whether these counters and the number of refused calls are as they must be.
  bool agrees(const media::PacketReaderStatistic& packets,
              const media::SessionManagerStatistic& calls, uint64_t refused_calls) const {
    using P = media::PacketReaderStatistic;
    using S = media::SessionManagerStatistic;
    const auto same = [](const auto& a, const auto& b, auto... counters) {
      return (((a.*counters).get() == (b.*counters).get()) && ...);
    };
    return refused == refused_calls &&
           same(reader, packets, &P::passed, &P::min_length, &P::max_length, &P::bad_marker,
                &P::bad_version, &P::corrupted_size, &P::unknown_type, &P::start_packets,
                &P::term_packets, &P::data_packets, &P::ctrl_packets) &&
           same(sessions, calls, &S::sessions, &S::zombies, &S::existing_index_errors,
                &S::allocation_errors, &S::unknown_index_errors, &S::lost_packets,
                &S::sequence_break_errors, &S::audit_calls, &S::audit_executions);
  }

  media::PacketReaderStatistic reader;
  media::SessionManagerStatistic sessions;
  /// Sessions and zombies that there was no room for; 0: as many as there are.
  std::size_t limit = 0;
  uint64_t refused = 0;
  /// With the calls' ids, in order.
  std::vector<std::pair<CallHook, uint64_t>> hooks;

 private:
  /// In order of their last refresh.
  struct Call {
    uint64_t id;
    bool zombie;
    uint64_t created;
    uint64_t start_mt;
    uint64_t activity;
    uint32_t last_seq[2] = {0, 0};
  };
  using Calls = std::list<Call>;

  template <typename T>
  T field(std::size_t offset) const {
    T value;
    std::memcpy(&value, m_bytes->data() + offset, sizeof value);
    return value;
  }
  uint64_t id() const { return field<uint64_t>(8); }
  uint64_t mt() const { return field<uint64_t>(32); }

  Calls::iterator find() {
    const auto entry = m_by_id.find(id());
    return entry == m_by_id.end() ? m_calls.end() : entry->second;
  }
  /// Makes room of what has timed out.
  bool has_room() {
    if (limit == 0 || m_calls.size() < limit) return true;
    idle(m_now);
    if (m_calls.size() < limit) return true;
    ++refused;
    return false;
  }
  void add(bool zombie, uint64_t created, uint64_t start_mt, uint64_t activity) {
    m_calls.push_back({id(), zombie, created, start_mt, activity});
    m_by_id[id()] = std::prev(m_calls.end());
    sessions.sessions.set(m_calls.size());
    if (zombie) sessions.zombies.increment();
    call_hook(CallHook::created, m_calls.back());
  }
  void call_hook(CallHook hook, const Call& call) {
    if (!call.zombie) hooks.push_back({hook, call.id});
  }
  void add_zombie() { add(true, m_now, mt(), m_now); }
  void erase(Calls::iterator call) {
    if (call->zombie) sessions.zombies.set(sessions.zombies.get() - 1);
    m_by_id.erase(call->id);
    m_calls.erase(call);
    sessions.sessions.set(m_calls.size());
  }
  void refresh(Calls::iterator call, CallHook hook) {
    call_hook(hook, *call);
    call->activity = call->created - call->start_mt + mt();
    m_calls.splice(m_calls.end(), m_calls, call);
  }

  void start() {
    const bool wanted = (field<uint8_t>(6) & 0x3C) != 0;
    const auto call = find();
    if (call == m_calls.end()) {
      if (!has_room()) return;
      if (wanted) return add(false, m_now, mt(), m_now);
      return add_zombie();
    }
    if (!call->zombie) return sessions.existing_index_errors.increment();
    if (!wanted) return;
    const Call zombie = *call;
    const uint64_t newest = m_calls.back().activity;
    erase(call);
    add(false, zombie.created, zombie.start_mt, newest + 1);
  }

  void terminate() {
    const auto call = find();
    if (call == m_calls.end()) return sessions.unknown_index_errors.increment();
    call_hook(CallHook::terminated, *call);
    erase(call);
  }

  void control() {
    const auto call = find();
    if (call != m_calls.end()) return refresh(call, CallHook::control);
    sessions.unknown_index_errors.increment();
    if (has_room()) add_zombie();
  }

  void data() {
    const unsigned side = field<uint8_t>(7) & 1;
    const auto seq = field<uint32_t>(40);
    const auto call = find();
    if (call == m_calls.end()) {
      sessions.unknown_index_errors.increment();
      if (!has_room()) return;
      add_zombie();
      m_calls.back().last_seq[side] = seq;
      return;
    }
    const uint32_t last = call->last_seq[side];
    if (last != 0 && seq <= last) return sessions.sequence_break_errors.increment();
    if (last != 0) sessions.lost_packets.add(seq - last - 1);
    call->last_seq[side] = seq;
    refresh(call, CallHook::media);
  }

  const std::vector<unsigned char>* m_bytes = nullptr;
  uint64_t m_now = 0;
  Calls m_calls;
  std::unordered_map<uint64_t, Calls::iterator> m_by_id;
};

}  // namespace cv::test
