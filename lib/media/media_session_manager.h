// One session a call: opened by START, refreshed by DATA and CTRL, closed by TERM or by 300 seconds
// without traffic.
//
// A call that is to be ignored (unknown, or refused by create_session) is held as a zombie, which
// absorbs the call's packets until it ends; no hook is ever called for a zombie.
//
// With a session limit a call that finds the table full is refused: it is no session and no zombie, and
// the lines about it are the limit's, one in five seconds.
//
// Invariants:
// 1. Every session of m_sessions stands in m_audit_list exactly once and knows its position there.
// 2. m_audit_list is in order of last refresh, the oldest at the front. An audit looks at the front
//    only and removes a bounded number of sessions, so that no call takes long.
// Threads: all operations and hooks run on the packet reader's thread.
// Failure: counted, logged, and the manager stays consistent.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "core/clock.h"
#include "core/counter.h"
#include "core/node_pool.h"
#include "core/spare_allocator.h"
#include "core/statistic_container.h"
#include "core/tally.h"
#include "media/media_packet_reader.h"
#include "media/media_session.h"

namespace cv::media {

struct SessionManagerStatistic {
  Counter sessions;               // entries now, zombies included
  Counter zombies;                // zombies now
  Counter existing_index_errors;  // START for a key that has a live session
  Counter allocation_errors;      // a session or zombie could not be allocated
  Counter unknown_index_errors;   // DATA, CTRL or TERM for an unknown key
  Counter lost_packets;           // DATA missing in a side's sequence
  Counter sequence_break_errors;  // DATA at or below the side's last sequence number
  Counter audit_calls;            // audits started
  Counter audit_executions;       // audits that removed a session
};

class SessionManager : public PacketReaderListener,
                       public StatisticContainer<SessionManagerStatistic>,
                       public PacketLookAhead {
 public:
  static constexpr int64_t timeout_us = 300000000;
  static constexpr std::size_t max_removals_per_audit = 10;
  /// Above this many sessions a reader that never runs idle audits too.
  static constexpr std::size_t busy_audit_sessions = 10000;
  /// From so many sessions on, data of packets to come are asked for ahead of time.
  static constexpr std::size_t look_ahead_sessions = 500;

  /// Neither is owned; both outlive the manager.
  explicit SessionManager(SessionManagerStatistic& statistic, const IClock& clock = steady_clock());

  /// Most sessions and zombies together; 0, the default: as many as there are. Before the first packet.
  void set_session_limit(std::size_t sessions) { m_session_limit = sessions; }
  /// Sessions and zombies refused by the limit. Any thread.
  uint64_t refused_sessions() const { return m_refused.total(); }

  void on_packet(StartPacket& packet) override;
  void on_packet(TerminatePacket& packet) override;
  void on_packet(DataPacket& packet) override;
  void on_packet(ControlPacket& packet) override;
  void on_packet_try() override;
  bool on_packet_idle() override;

  void on_packet_ahead(const DataPacket& packet, Stage stage) override;

  ~SessionManager() override;

 protected:
  /// Null with `error` 0: no memory. Null with `error` non-zero: the call is refused.
  virtual Session* create_session(const StartPacket& packet, int& error);

  virtual void on_session_created(rc_ptr<Session> session, StartPacket& packet);
  /// For DATA in sequence only.
  virtual void on_session_media(rc_ptr<Session> session, DataPacket& packet);
  virtual void on_session_control(rc_ptr<Session> session, ControlPacket& packet);
  /// The session has already left the tables, as it has for a time-out.
  virtual void on_session_terminated(rc_ptr<Session> session, TerminatePacket& packet);
  virtual void on_session_timedout(rc_ptr<Session> session);

  /// Asks for the memory that on_session_media() will touch; see PacketLookAhead.
  virtual void prefetch_media(const Session& session, const DataPacket& packet, Stage stage) const;

  int64_t now_us() const { return m_clock.now_us(); }

  /// Open addressing: a look-up touches two lines, and can be asked for ahead of time. Its hash is
  /// salted, so that keys that collide cannot easily be made.
  using SessionEntry = std::pair<const uint64_t, rc_ptr<Session>>;
  using SessionMap =
      absl::flat_hash_map<uint64_t, rc_ptr<Session>, absl::flat_hash_map<uint64_t, int>::hasher,
                          std::equal_to<>, mem::SpareAllocator<SessionEntry>>;

  void erase_session(SessionMap::iterator entry);
  bool audit();
  void decrease_zombie_counter(unsigned long removed);

  // The list's nodes, close together: with many calls each packet finds them out of the cache, and
  // scattered among the sessions every one would be on a page of its own.
  mem::NodePool m_nodes;
  mem::Spare m_table;
  SessionMap m_sessions{mem::SpareAllocator<SessionEntry>(m_table)};
  AuditList m_audit_list{&m_nodes};

 private:
  struct AuditCount;

  /// Enters a session into both tables; false, and nothing has changed, without memory for that.
  bool insert(const rc_ptr<Session>& session);
  void take_place(SessionMap::iterator entry, const rc_ptr<Session>& session);
  void revive_zombie(SessionMap::iterator entry, StartPacket& packet);
  void report_failed_allocation(const PacketHeader& header);
  Session* setup_zombie(const PacketHeader& header);
  /// A packet of a call that is not in the table: warns of it, and takes the call for a zombie.
  template <typename Packet>
  Session* absorb_unknown(int line, const Packet& packet);
  /// Makes room of what has timed out; a session that gets none is counted as refused.
  bool has_room();
  bool full() const { return m_session_limit != 0 && m_sessions.size() >= m_session_limit; }
  void say_refused_when_due();
  void say_refused(uint64_t count) const;
  void prefetch_front() const;
  void prefetch_neighbours(AuditList::const_iterator position) const;
  /// False: the packet repeats an older one and is to be dropped.
  bool accept_sequence(Session& session, const DataPacket& packet);
  void refresh(Session& session, uint64_t mt);
  static bool timed_out(const Session& session, int64_t now);
  void remove_timed_out(const rc_ptr<Session>& session, int64_t now);

  const IClock& m_clock;
  std::size_t m_session_limit = 0;
  Tally m_refused;
};

/// The text of the warning about a packet whose call is not known.
std::string unknown_session_text(const DataPacket& packet);
std::string unknown_session_text(const ControlPacket& packet);
std::string unknown_session_text(const TerminatePacket& packet);

}  // namespace cv::media
