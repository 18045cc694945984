#include "media/media_session_manager.h"

#include <iterator>
#include <new>
#include <sstream>

#include "core/prefetch.h"
#include "log/log.h"
#include "log/log_sinks.h"
#include "utils/utils_str.h"

namespace cv::media {

namespace {

utils::str::UuidText uuid_text(const Uuid& uuid) { return utils::str::UuidText(uuid.data()); }

template <typename Packet>
void warn_unknown_session(int line, const Packet& packet) {
  log::trace<log::WarningMessage>(CV_LOG_MODULE, line, log::LocalLevel::LOCAL1,
                                  [&packet] { return unknown_session_text(packet); });
}

}  // namespace

SessionManager::SessionManager(SessionManagerStatistic& statistic, const IClock& clock)
    : StatisticContainer(&statistic), m_clock(clock) {}

SessionManager::~SessionManager() {
  if (const uint64_t count = m_refused.take_rest()) say_refused(count);
}

void SessionManager::on_packet(StartPacket& packet) {
  const auto entry = m_sessions.find(packet.id);
  if (entry != m_sessions.end()) {
    if (entry->second->m_zombie) return revive_zombie(entry, packet);
    m_statistic->existing_index_errors.increment();
    CV_LOG(ErrorMessage) << "SESSION_MANAGER: Session " << uuid_text(packet.uuid)
                         << " already exists: check call id as this may be a CRC64 collision";
    return;
  }
  if (!has_room()) return;
  int error = 0;
  if (const rc_ptr<Session> session = create_session(packet, error)) {
    if (insert(session)) return on_session_created(session, packet);
    report_failed_allocation(packet);
  } else if (error == 0) {
    report_failed_allocation(packet);
  } else {
    setup_zombie(packet);
  }
}

void SessionManager::revive_zombie(SessionMap::iterator entry, StartPacket& packet) {
  int error = 0;
  const rc_ptr<Session> session = create_session(packet, error);
  if (!session) {
    if (error == 0) report_failed_allocation(packet);
    return;
  }
  session->m_created_us = entry->second->m_created_us;
  session->m_start_mt = entry->second->m_start_mt;
  // The list is in order of activity: the new session goes behind the last one. Unsigned, because
  // media time comes from the network and may have carried that one anywhere.
  const auto newest_us = static_cast<uint64_t>(m_audit_list.back()->m_last_activity_us);
  session->m_last_activity_us = static_cast<int64_t>(newest_us + 1);
  take_place(entry, session);
  decrease_zombie_counter(1);
  CV_LOG(InfoMessage) << "SESSION_MANAGER: Session " << uuid_text(packet.uuid)
                      << " was created out the zombie";
  on_session_created(session, packet);
}

/// The session stands where the entry's session stood, which leaves both tables. Needs no memory.
void SessionManager::take_place(SessionMap::iterator entry, const rc_ptr<Session>& session) {
  const auto position = entry->second->m_audit_position;
  entry->second->m_audit_position = m_audit_list.end();
  entry->second = session;
  *position = session;
  m_audit_list.splice(m_audit_list.end(), m_audit_list, position);
  session->m_audit_position = position;
}

void SessionManager::on_packet(DataPacket& packet) {
  const auto entry = m_sessions.find(packet.id);
  if (entry == m_sessions.end()) {
    Session* zombie = absorb_unknown(__LINE__, packet);
    if (zombie != nullptr) zombie->m_last_seq[packet.side()] = packet.seq;
    return;
  }
  rc_ptr<Session>& session = entry->second;
  if (!accept_sequence(*session, packet)) return;
  refresh(*session, packet.mt);
  if (!session->m_zombie) on_session_media(session, packet);
}

void SessionManager::on_packet(ControlPacket& packet) {
  const auto entry = m_sessions.find(packet.id);
  if (entry == m_sessions.end()) {
    absorb_unknown(__LINE__, packet);
    return;
  }
  rc_ptr<Session>& session = entry->second;
  refresh(*session, packet.mt);
  if (!session->m_zombie) on_session_control(session, packet);
}

void SessionManager::on_packet(TerminatePacket& packet) {
  const auto entry = m_sessions.find(packet.id);
  if (entry == m_sessions.end()) {
    m_statistic->unknown_index_errors.increment();
    warn_unknown_session(__LINE__, packet);
    return;
  }
  const rc_ptr<Session> session = entry->second;
  erase_session(entry);
  if (!session->m_zombie) on_session_terminated(session, packet);
}

void SessionManager::on_packet_try() {
  if (m_sessions.size() <= busy_audit_sessions) return;
  on_packet_idle();
  prefetch_front();
}

/// Whoever comes to the front next is looked at in some packets' time.
void SessionManager::prefetch_front() const {
  if (m_audit_list.size() < 3) return;
  const auto second = std::next(m_audit_list.begin());
  if (*second) prefetch(&(*second)->m_last_activity_us);
  prefetch(&*std::next(second));
}

bool SessionManager::on_packet_idle() {
  say_refused_when_due();
  m_statistic->audit_calls.increment();
  return audit();
}

void SessionManager::on_packet_ahead(const DataPacket& packet, Stage stage) {
  // The tables of fewer sessions stay in the cache by themselves.
  if (m_sessions.size() < look_ahead_sessions) return;
  if (stage == Stage::table) return m_sessions.prefetch(packet.id);
  const auto entry = m_sessions.find(packet.id);
  if (entry == m_sessions.end()) return;
  const Session& session = *entry->second;
  // Not a look into it yet, that would wait for the very answer.
  if (stage == Stage::session) return prefetch(&session, sizeof(StreamSession));
  if (stage == Stage::stream) {
    prefetch(&*session.m_audit_position);
  } else {
    prefetch_neighbours(session.m_audit_position);
  }
  if (!session.m_zombie) prefetch_media(session, packet, stage);
}

/// Moving an entry of the list writes to those beside it.
void SessionManager::prefetch_neighbours(AuditList::const_iterator position) const {
  if (position != m_audit_list.begin()) prefetch(&*std::prev(position));
  if (++position != m_audit_list.end()) prefetch(&*position);
}

void SessionManager::prefetch_media(const Session&, const DataPacket&, Stage) const {}

Session* SessionManager::create_session(const StartPacket& packet, int& error) {
  error = 0;
  return create_or_null<Session>(packet, now_us());
}

void SessionManager::on_session_created(rc_ptr<Session>, StartPacket&) {}
void SessionManager::on_session_media(rc_ptr<Session>, DataPacket&) {}
void SessionManager::on_session_control(rc_ptr<Session>, ControlPacket&) {}
void SessionManager::on_session_terminated(rc_ptr<Session>, TerminatePacket&) {}
void SessionManager::on_session_timedout(rc_ptr<Session>) {}

bool SessionManager::insert(const rc_ptr<Session>& session) {
  if (!m_table.prepare()) return false;
  try {
    AuditList entry(1, session, m_audit_list.get_allocator());
    m_sessions.emplace(session->m_id, session);
    session->m_audit_position = entry.begin();
    m_audit_list.splice(m_audit_list.end(), entry);
  } catch (const std::bad_alloc&) {
    return false;
  }
  m_statistic->sessions.set(m_sessions.size());
  return true;
}

void SessionManager::report_failed_allocation(const PacketHeader& header) {
  m_statistic->allocation_errors.increment();
  CV_LOG(ErrorMessage) << "SESSION_MANAGER: Session " << uuid_text(header.uuid)
                       << " allocation failed";
}

Session* SessionManager::setup_zombie(const PacketHeader& header) {
  const rc_ptr<Session> zombie = create_or_null<Session>(Session::Zombie(), header, now_us());
  if (!zombie || !insert(zombie)) {
    m_statistic->allocation_errors.increment();
    CV_LOG(ErrorMessage) << "SESSION_MANAGER: Zombie session " << uuid_text(header.uuid)
                         << " allocation failed";
    return nullptr;
  }
  m_statistic->zombies.increment();
  return zombie.get();
}

// Without a place in the table nothing absorbs the packets behind this one: a warning for each of them
// would make a line of every packet of the calls that the limit keeps out.
template <typename Packet>
Session* SessionManager::absorb_unknown(int line, const Packet& packet) {
  m_statistic->unknown_index_errors.increment();
  if (!has_room()) return nullptr;
  warn_unknown_session(line, packet);
  return setup_zombie(packet);
}

bool SessionManager::has_room() {
  if (!full()) return true;
  on_packet_idle();
  if (!full()) return true;
  m_refused.add(1);
  say_refused_when_due();
  return false;
}

void SessionManager::say_refused_when_due() {
  if (m_refused.unsaid() == 0) return;
  if (const auto count = m_refused.take(now_us())) say_refused(*count);
}

void SessionManager::say_refused(uint64_t count) const {
  CV_LOG(WarningMessage) << "SESSION_MANAGER: the session limit (" << m_session_limit
                         << ") is reached: (" << count
                         << ") packets refused that would have made a session; ("
                         << m_refused.total() << ") in all";
}

bool SessionManager::accept_sequence(Session& session, const DataPacket& packet) {
  uint32_t& last = session.m_last_seq[packet.side()];
  if (last != 0 && packet.seq <= last) {
    m_statistic->sequence_break_errors.increment();
    return false;
  }
  if (last != 0) m_statistic->lost_packets.add(packet.seq - 1 - last);
  last = packet.seq;
  return true;
}

// Media time carried onto the monotonic clock. Unsigned, because it comes from the network: it may
// lie anywhere, and wraps instead of overflowing.
void SessionManager::refresh(Session& session, uint64_t mt) {
  const uint64_t base_us = static_cast<uint64_t>(session.m_created_us) - session.m_start_mt;
  session.m_last_activity_us = static_cast<int64_t>(base_us + mt);
  m_audit_list.splice(m_audit_list.end(), m_audit_list, session.m_audit_position);
}

void SessionManager::erase_session(SessionMap::iterator entry) {
  if (entry == m_sessions.end()) {
    CV_LOG(ErrorMessage) << "SESSION_MANAGER: Trying to remove empty iterator";
    return;
  }
  const rc_ptr<Session> session = std::move(entry->second);
  m_sessions.erase(entry);
  m_statistic->sessions.set(m_sessions.size());
  if (!session) {
    CV_LOG(ErrorMessage)
        << "SESSION_MANAGER: Trying to remove null session (while iterator is valid)";
    return;
  }
  m_audit_list.erase(session->m_audit_position);
  session->m_audit_position = m_audit_list.end();
  if (session->m_zombie) decrease_zombie_counter(1);
}

/// Counts what an audit has removed when it ends, also when a hook ends it.
struct SessionManager::AuditCount {
  ~AuditCount() {
    manager.m_statistic->sessions.set(manager.m_sessions.size());
    manager.decrease_zombie_counter(zombies);
    if (removed != 0) manager.m_statistic->audit_executions.increment();
  }

  SessionManager& manager;
  std::size_t removed = 0;
  unsigned long zombies = 0;
};

bool SessionManager::audit() {
  const int64_t now = now_us();
  AuditCount count{*this};
  while (count.removed < max_removals_per_audit && !m_audit_list.empty()) {
    if (m_audit_list.front() && !timed_out(*m_audit_list.front(), now)) break;
    const rc_ptr<Session> session = m_audit_list.front();
    m_audit_list.pop_front();
    ++count.removed;
    if (!session) {
      CV_LOG(ErrorMessage)
          << "SESSION_MANAGER: Trying to remove null session (while audit iterator is valid)";
      continue;
    }
    if (session->m_zombie) ++count.zombies;
    remove_timed_out(session, now);
  }
  return count.removed > 0;
}

void SessionManager::remove_timed_out(const rc_ptr<Session>& session, int64_t now) {
  session->m_audit_position = m_audit_list.end();
  m_sessions.erase(session->m_id);
  if (!session->m_zombie) on_session_timedout(session);
  CV_LOG(WarningMessage) << "SESSION_MANAGER: Timeout for session " << uuid_text(session->m_uuid)
                         << ": " << session->m_last_activity_us << " " << now;
}

bool SessionManager::timed_out(const Session& session, int64_t now) {
  const auto last_activity_us = static_cast<uint64_t>(session.m_last_activity_us);
  return last_activity_us + timeout_us <= static_cast<uint64_t>(now);
}

void SessionManager::decrease_zombie_counter(unsigned long removed) {
  const uint64_t zombies = m_statistic->zombies.get();
  if (zombies < removed) {
    CV_LOG(WarningMessage) << "SESSION_MANAGER: Statistic corruption detected:: current zombies ("
                           << zombies << "), actually removed (" << removed << ")";
  }
  m_statistic->zombies.set(zombies < removed ? 0 : zombies - removed);
}

std::string unknown_session_text(const DataPacket& packet) {
  std::ostringstream text;
  text << "DATA  | mt: " << packet.mt << ", uuid: " << uuid_text(packet.uuid)
       << ", side: " << packet.side() << ", seq: " << packet.seq << " | unknown session";
  return text.str();
}

std::string unknown_session_text(const ControlPacket& packet) {
  std::ostringstream text;
  text << "CTRL  | mt: " << packet.mt << ", uuid: " << uuid_text(packet.uuid)
       << " | unknown session";
  return text.str();
}

std::string unknown_session_text(const TerminatePacket& packet) {
  std::ostringstream text;
  text << "TERM  | mt: " << packet.mt << ", uuid: " << uuid_text(packet.uuid)
       << " | unknown session";
  return text.str();
}

}  // namespace cv::media
