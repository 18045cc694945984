#include "media/media_session_manager.h"

#include <gtest/gtest.h>
#include <limits>
#include <syslog.h>

#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/packet_builder.h"
#include "support/syslog_capture.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;
using cv::test::CallPackets;
using cv::test::Viewed;

constexpr uint64_t second_us = 1000000;

/// Records the hooks; refuses or fails to create sessions on request.
class Manager : public SessionManager {
 public:
  using SessionManager::audit;
  using SessionManager::decrease_zombie_counter;
  using SessionManager::erase_session;
  using SessionManager::m_audit_list;
  using SessionManager::m_sessions;
  using SessionManager::SessionManager;

  Session* create_session(const StartPacket& packet, int& error) override {
    error = refusal;
    return refuse ? nullptr : SessionManager::create_session(packet, error);
  }
  void on_session_created(rc_ptr<Session> session, StartPacket& packet) override {
    EXPECT_EQ(m_sessions.at(packet.id), session) << "registered before the hook";
    events.push_back("created " + std::to_string(session->m_id));
  }
  void on_session_media(rc_ptr<Session> session, DataPacket& packet) override {
    events.push_back("media " + std::to_string(session->m_id) + " " + std::to_string(packet.seq));
  }
  void on_session_control(rc_ptr<Session> session, ControlPacket&) override {
    events.push_back("control " + std::to_string(session->m_id));
  }
  void on_session_terminated(rc_ptr<Session> session, TerminatePacket&) override {
    EXPECT_FALSE(m_sessions.contains(session->m_id));
    EXPECT_TRUE(session->m_audit_position == m_audit_list.end());
    events.push_back("terminated " + std::to_string(session->m_id));
  }
  void on_session_timedout(rc_ptr<Session> session) override {
    EXPECT_FALSE(m_sessions.contains(session->m_id));
    EXPECT_TRUE(session->m_audit_position == m_audit_list.end());
    events.push_back("timedout " + std::to_string(session->m_id));
  }

  bool refuse = false;
  int refusal = 0;
  std::vector<std::string> events;
};

class SessionManagerTest : public testing::Test {
 protected:
  void start(const CallPackets& call, uint64_t mt = 0) { pass<StartPacket>(call.start(mt)); }
  void data(const CallPackets& call, uint16_t side, uint32_t seq, uint64_t mt = 0) {
    pass<DataPacket>(call.data(side, seq, mt));
  }
  void control(const CallPackets& call, uint64_t mt = 0) {
    pass<ControlPacket>(call.control(1, mt));
  }
  void terminate(const CallPackets& call) { pass<TerminatePacket>(call.terminate()); }

  template <typename Packet>
  void pass(const Datagram& datagram) {
    Viewed<Packet> packet(datagram);
    manager.on_packet(*packet);
    EXPECT_EQ(statistic.sessions.get(), manager.m_sessions.size());
    EXPECT_EQ(manager.m_audit_list.size(), manager.m_sessions.size());
  }

  /// The ids from the least recently refreshed on.
  std::vector<uint64_t> audit_order() const {
    std::vector<uint64_t> ids;
    for (const auto& session : manager.m_audit_list) ids.push_back(session->m_id);
    return ids;
  }
  Session& session_of(const CallPackets& call) { return *manager.m_sessions.at(call.key().id); }

  cv::test::LogCapture log;
  cv::test::SyslogCapture syslog;
  cv::test::FakeClock clock{int64_t{1000} * 1000000};
  SessionManagerStatistic statistic;
  Manager manager{statistic, clock};
  const CallPackets one{1};
  const CallPackets two{2};
};

using Events = std::vector<std::string>;

TEST_F(SessionManagerTest, StartFillsTheSession) {
  StartFields fields;
  fields.ts = 1635500000;
  fields.call_id = std::string_view("call\0tail", 9);
  pass<StartPacket>(one.start(fields, 42));
  const Session& session = session_of(one);
  EXPECT_EQ(session.m_uuid, one.key().uuid);
  EXPECT_EQ(session.m_id, 1u);
  EXPECT_EQ(session.m_ts, 1635500000u);
  EXPECT_EQ(session.m_start_mt, 42u);
  EXPECT_EQ(session.m_created_us, clock.now_us());
  EXPECT_EQ(session.m_last_activity_us, clock.now_us());
  EXPECT_EQ(session.m_last_seq, (std::array<uint32_t, 2>{0, 0}));
  EXPECT_EQ(session.m_call_id, "call");
  EXPECT_FALSE(session.m_zombie);
}

TEST_F(SessionManagerTest, ACallFromStartToTerm) {
  start(one);
  data(one, 0, 1);
  control(one);
  data(one, 1, 1);
  terminate(one);
  EXPECT_EQ(manager.events,
            (Events{"created 1", "media 1 1", "control 1", "media 1 1", "terminated 1"}));
  EXPECT_TRUE(manager.m_sessions.empty());
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(syslog.lines().empty());
}

TEST_F(SessionManagerTest, ChecksTheSequenceOfEachSide) {
  constexpr uint32_t last = std::numeric_limits<uint32_t>::max();
  struct Step {
    uint16_t side;
    uint32_t seq;
    uint64_t lost, breaks;  // in all, after this packet
  };
  const Step steps[] = {
      {0, 0, 0, 0},  // 0 is nothing seen yet, so it neither counts nor blocks
      {0, 5, 0, 0},  // the first number may be any
      {0, 9, 3, 0},
      {0, 9, 3, 1},
      {0, 7, 3, 2},
      {0, 0, 3, 3},
      {0, 10, 3, 3},
      {1, 3, 3, 3},
      {1, 4, 3, 3},
      {1, 3, 3, 4},
      {0, 12, 4, 4},
      {1, last, 4 + (last - 5), 4},
      {1, 1, 4 + (last - 5), 5},
  };
  start(one);
  Events expected = {"created 1"};
  uint64_t breaks = 0;
  for (const Step& step : steps) {
    data(one, step.side, step.seq);
    const std::string name = std::to_string(step.side) + ":" + std::to_string(step.seq);
    EXPECT_EQ(statistic.lost_packets.get(), step.lost) << name;
    EXPECT_EQ(statistic.sequence_break_errors.get(), step.breaks) << name;
    if (step.breaks == breaks) expected.push_back("media 1 " + std::to_string(step.seq));
    breaks = step.breaks;
  }
  EXPECT_EQ(manager.events, expected);
}

TEST_F(SessionManagerTest, ARepeatDoesNotRefresh) {
  start(one);
  start(two);
  data(one, 0, 5, 10 * second_us);
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{2, 1}));
  data(two, 0, 5);
  data(one, 0, 5, 20 * second_us);
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{1, 2}));
  EXPECT_EQ(session_of(one).m_last_activity_us, clock.now_us() + int64_t{10000000});
}

TEST_F(SessionManagerTest, PacketsOfUnknownCalls) {
  const std::string uuid = "uuid: 00112233-4455-6677-8899-aabbccddee0";
  data(one, 1, 7, 70);
  control(two, 80);
  terminate(CallPackets(3));
  EXPECT_EQ(statistic.unknown_index_errors.get(), 3u);
  EXPECT_EQ(statistic.zombies.get(), 2u);
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{1, 2})) << "TERM leaves no zombie";
  EXPECT_EQ(session_of(one).m_start_mt, 70u);
  EXPECT_EQ(session_of(one).m_created_us, clock.now_us());

  data(one, 1, 9);
  data(one, 0, 1);
  control(two);
  EXPECT_EQ(statistic.unknown_index_errors.get(), 3u);
  EXPECT_EQ(statistic.lost_packets.get(), 1u) << "the zombie remembers its side's first number";
  terminate(one);
  EXPECT_EQ(statistic.zombies.get(), 1u);
  EXPECT_TRUE(manager.events.empty());

  const auto lines = syslog.lines();
  const char* texts[] = {"DATA  | mt: 70, ", "CTRL  | mt: 80, ", "TERM  | mt: 0, "};
  const char* ends[] = {"1, side: 1, seq: 7 | unknown session\n", "2 | unknown session\n",
                        "3 | unknown session\n"};
  ASSERT_EQ(lines.size(), 3u);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].facility, LOG_LOCAL1);
    EXPECT_EQ(lines[i].severity, LOG_WARNING);
    EXPECT_TRUE(lines[i].text.starts_with("WARNING | media_session_manager:"));
    EXPECT_TRUE(lines[i].text.ends_with(" | " + (texts[i] + uuid) + ends[i])) << lines[i].text;
  }
}

TEST_F(SessionManagerTest, ARefusedCallIsAbsorbedByAZombie) {
  manager.refuse = true;
  manager.refusal = 1;
  start(one);
  data(one, 0, 1);
  control(one);
  start(one);
  EXPECT_TRUE(session_of(one).m_zombie);
  EXPECT_EQ(statistic.zombies.get(), 1u);
  terminate(one);
  EXPECT_EQ(statistic.zombies.get(), 0u);
  EXPECT_EQ(statistic.unknown_index_errors.get(), 0u);
  EXPECT_EQ(statistic.allocation_errors.get(), 0u);
  EXPECT_TRUE(manager.events.empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SessionManagerTest, AFailedAllocationIsCountedAndLeavesWhatWasThere) {
  data(two, 0, 1);
  manager.refuse = true;
  start(one);
  start(two);
  EXPECT_EQ(audit_order(), std::vector<uint64_t>{2});
  EXPECT_TRUE(session_of(two).m_zombie);
  EXPECT_EQ(statistic.allocation_errors.get(), 2u);
  EXPECT_EQ(log.texts(), (Events{"ERROR media_session_manager SESSION_MANAGER: Session "
                                 "00112233-4455-6677-8899-aabbccddee01 allocation failed",
                                 "ERROR media_session_manager SESSION_MANAGER: Session "
                                 "00112233-4455-6677-8899-aabbccddee02 allocation failed"}));
}

TEST_F(SessionManagerTest, StartRevivesAZombie) {
  data(one, 0, 50, 7 * second_us);
  const int64_t zombie_created_us = clock.now_us();
  clock.advance_seconds(100);
  start(two);
  data(two, 0, 1, 3 * second_us);
  start(one, 9 * second_us);

  const Session& session = session_of(one);
  EXPECT_FALSE(session.m_zombie);
  EXPECT_EQ(session.m_created_us, zombie_created_us);
  EXPECT_EQ(session.m_start_mt, 7 * second_us);
  EXPECT_EQ(session.m_last_activity_us, session_of(two).m_last_activity_us + 1);
  EXPECT_EQ(session.m_last_seq[0], 0u);
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{2, 1}));
  EXPECT_EQ(statistic.zombies.get(), 0u);
  EXPECT_EQ(log.texts(), Events{"INFO media_session_manager SESSION_MANAGER: Session "
                                "00112233-4455-6677-8899-aabbccddee01 was created out the zombie"});
  data(one, 0, 51, 10 * second_us);
  EXPECT_EQ(session.m_last_activity_us, zombie_created_us + int64_t{3000000});
  EXPECT_EQ(manager.events, (Events{"created 2", "media 2 1", "created 1", "media 1 51"}));
}

TEST_F(SessionManagerTest, ACollidingIdActsOnTheFirstCall) {
  const CallPackets collides(1, Uuid{9});
  start(one);
  start(collides);
  data(collides, 0, 1);
  EXPECT_EQ(session_of(one).m_uuid, one.key().uuid);
  EXPECT_EQ(statistic.existing_index_errors.get(), 1u);
  EXPECT_EQ(log.texts(),
            Events{"ERROR media_session_manager SESSION_MANAGER: Session "
                   "09000000-0000-0000-0000-000000000000 already exists: check call id as this may "
                   "be a CRC64 collision"});
  terminate(collides);
  EXPECT_EQ(manager.events, (Events{"created 1", "media 1 1", "terminated 1"}));
}

TEST_F(SessionManagerTest, TimesOutAfter300SecondsAndNotBefore) {
  start(one);
  data(two, 0, 1);
  clock.advance_us(SessionManager::timeout_us - 1);
  EXPECT_FALSE(manager.on_packet_idle());
  EXPECT_EQ(manager.m_sessions.size(), 2u);
  clock.advance_us(1);
  EXPECT_TRUE(manager.on_packet_idle());
  EXPECT_FALSE(manager.on_packet_idle());
  EXPECT_EQ(manager.events, (Events{"created 1", "timedout 1"})) << "no hook for the zombie";
  EXPECT_EQ(statistic.sessions.get(), 0u);
  EXPECT_EQ(statistic.zombies.get(), 0u);
  EXPECT_EQ(statistic.audit_calls.get(), 3u);
  EXPECT_EQ(statistic.audit_executions.get(), 1u);
  const std::string head = "WARNING media_session_manager SESSION_MANAGER: Timeout for session ";
  EXPECT_EQ(log.texts(),
            (Events{head + "00112233-4455-6677-8899-aabbccddee01: 1000000000 1300000000",
                    head + "00112233-4455-6677-8899-aabbccddee02: 1000000000 1300000000"}));
}

TEST_F(SessionManagerTest, RemovesTenSessionsAnAudit) {
  for (uint8_t i = 1; i <= 12; ++i) start(CallPackets(i));
  clock.advance_seconds(300);
  EXPECT_TRUE(manager.on_packet_idle());
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{11, 12}));
  EXPECT_EQ(statistic.sessions.get(), 2u);
  EXPECT_TRUE(manager.on_packet_idle());
  EXPECT_FALSE(manager.on_packet_idle());
  EXPECT_TRUE(manager.m_sessions.empty());
  EXPECT_EQ(manager.events.size(), 24u);
  EXPECT_EQ(statistic.audit_executions.get(), 2u);
}

TEST_F(SessionManagerTest, ActivityFollowsMediaTime) {
  struct Case {
    uint64_t start_mt, mt;
    int64_t alive_seconds;
  };
  const Case table[] = {
      {0, 0, 300},
      {5 * second_us, 25 * second_us, 320},
      {0, 3600 * second_us, 3900},
      {50 * second_us, 30 * second_us, 280},  // media time behind its start
  };
  for (const Case& c : table) {
    start(one, c.start_mt);
    data(one, 0, 1, c.mt);
    clock.advance_us(c.alive_seconds * 1000000 - 1);
    EXPECT_FALSE(manager.audit()) << c.alive_seconds;
    clock.advance_us(1);
    EXPECT_TRUE(manager.audit()) << c.alive_seconds;
  }
}

// Media time is the sender's word: whatever it says, nothing overflows and TERM still ends the call.
TEST_F(SessionManagerTest, AbsurdMediaTimesAreHarmless) {
  constexpr uint64_t max = std::numeric_limits<uint64_t>::max();
  for (uint64_t mt : {max, max / 2, max / 2 + 1, uint64_t{1}}) {
    for (uint64_t start_mt : {uint64_t{0}, max, max / 2}) {
      start(one, start_mt);
      data(one, 0, 1, mt);
      control(one, start_mt);
      data(two, 0, 1);
      data(one, 0, 2, max / 2 - static_cast<uint64_t>(clock.now_us()) + start_mt);
      start(two);
      manager.audit();
      terminate(one);
      terminate(two);
    }
  }
  EXPECT_TRUE(manager.m_sessions.empty());
  EXPECT_EQ(statistic.zombies.get(), 0u);
}

TEST_F(SessionManagerTest, ABusyReaderAuditsOnlyAbove10000Sessions) {
  const auto open = [this](uint64_t id) { start(CallPackets(id, Uuid{})); };
  for (uint64_t id = 1; id <= 10000; ++id) open(id);
  clock.advance_seconds(300);
  manager.on_packet_try();
  EXPECT_EQ(statistic.audit_calls.get(), 0u);
  open(10001);
  manager.on_packet_try();
  EXPECT_EQ(statistic.audit_calls.get(), 1u);
  EXPECT_EQ(statistic.audit_executions.get(), 1u);
  EXPECT_EQ(statistic.sessions.get(), 9991u);
}

TEST_F(SessionManagerTest, CorruptionIsLoggedAndRepaired) {
  const std::string head = "media_session_manager SESSION_MANAGER: ";
  manager.erase_session(manager.m_sessions.end());
  manager.m_sessions.emplace(9, rc_ptr<Session>());
  manager.erase_session(manager.m_sessions.begin());
  EXPECT_TRUE(manager.m_sessions.empty());
  manager.m_audit_list.push_back(rc_ptr<Session>());
  manager.audit();
  EXPECT_TRUE(manager.m_audit_list.empty());
  statistic.zombies.set(2);
  manager.decrease_zombie_counter(3);
  EXPECT_EQ(statistic.zombies.get(), 0u);
  EXPECT_EQ(
      log.texts(),
      (Events{"ERROR " + head + "Trying to remove empty iterator",
              "ERROR " + head + "Trying to remove null session (while iterator is valid)",
              "ERROR " + head + "Trying to remove null session (while audit iterator is valid)",
              "WARNING " + head +
                  "Statistic corruption detected:: current zombies (2), "
                  "actually removed (3)"}));
}

}  // namespace
