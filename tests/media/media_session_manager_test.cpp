#include "media/media_session_manager.h"

#include <gtest/gtest.h>
#include <limits>

#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;
using cv::test::CallPackets;
using cv::test::deliver;
using Events = std::vector<std::string>;

constexpr uint64_t second_us = 1000000;

/// Records the hooks; refuses or fails to create sessions on request.
class Manager : public SessionManager {
 public:
  using SessionManager::audit;
  using SessionManager::m_audit_list;
  using SessionManager::m_sessions;
  using SessionManager::SessionManager;

  Session* create_session(const StartPacket& packet, int& error) override {
    error = refusal;
    return refuse ? nullptr : SessionManager::create_session(packet, error);
  }
  void on_session_created(rc_ptr<Session> session, StartPacket&) override {
    EXPECT_EQ(m_sessions.at(session->m_id), session);
    record("created", *session);
  }
  void on_session_media(rc_ptr<Session> session, DataPacket&) override {
    record("media", *session);
  }
  void on_session_control(rc_ptr<Session> session, ControlPacket&) override {
    record("control", *session);
  }
  void on_session_terminated(rc_ptr<Session> session, TerminatePacket&) override {
    EXPECT_FALSE(m_sessions.contains(session->m_id));
    record("terminated", *session);
  }
  void on_session_timedout(rc_ptr<Session> session) override {
    EXPECT_FALSE(m_sessions.contains(session->m_id));
    record("timedout", *session);
  }
  void record(const char* event, const Session& session) {
    events.push_back(std::string(event) + " " + std::to_string(session.m_id));
  }

  bool refuse = false;
  int refusal = 0;
  Events events;
};

class SessionManagerTest : public testing::Test {
 protected:
  void in(const Datagram& datagram) {
    deliver(manager, datagram);
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
  cv::test::FakeClock clock{int64_t{1000} * 1000000};
  SessionManagerStatistic statistic;
  Manager manager{statistic, clock};
  const CallPackets one{1};
  const CallPackets two{2};
};

TEST_F(SessionManagerTest, ChecksTheSequenceOfEachSide) {
  constexpr uint32_t last = std::numeric_limits<uint32_t>::max();
  struct Step {
    uint16_t side;
    uint32_t seq;
    uint64_t lost;  // with this packet
    bool passed;
  };
  const Step steps[] = {
      {0, 0, 0, true},  // 0 is nothing seen yet, so it neither counts nor blocks
      {0, 5, 0, true},  // the first number may be any
      {0, 9, 3, true},  {0, 9, 0, false}, {0, 7, 0, false},          {1, 3, 0, true},
      {0, 10, 0, true}, {1, 4, 0, true},  {1, last, last - 5, true}, {1, 5, 0, false},
  };
  in(one.start());
  uint64_t lost = 0, breaks = 0;
  for (const Step& step : steps) {
    manager.events.clear();
    in(one.data(step.side, step.seq));
    EXPECT_EQ(statistic.lost_packets.get(), lost += step.lost) << step.side << ":" << step.seq;
    EXPECT_EQ(statistic.sequence_break_errors.get(), breaks += step.passed ? 0 : 1);
    EXPECT_EQ(manager.events, step.passed ? Events{"media 1"} : Events{});
  }
}

TEST_F(SessionManagerTest, ARepeatDoesNotRefresh) {
  in(one.start());
  in(two.start());
  in(one.data(0, 5, 10 * second_us));
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{2, 1}));
  in(two.control(1));
  in(one.data(0, 5, 20 * second_us));
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{1, 2}));
  EXPECT_EQ(session_of(one).m_last_activity_us, clock.now_us() + int64_t{10000000});
}

TEST_F(SessionManagerTest, PacketsOfUnknownCallsAreAbsorbed) {
  in(one.data(1, 7, 70));
  in(two.control(1));
  in(CallPackets(3).terminate());
  EXPECT_EQ(statistic.unknown_index_errors.get(), 3u);
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{1, 2})) << "TERM leaves no zombie";
  EXPECT_EQ(session_of(one).m_start_mt, 70u);

  for (const auto& datagram : {one.data(1, 9), two.control(1)}) in(datagram);
  EXPECT_EQ(statistic.unknown_index_errors.get(), 3u);
  EXPECT_EQ(statistic.lost_packets.get(), 1u) << "the zombie remembers its side's first number";
  EXPECT_EQ(statistic.zombies.get(), 2u);
  in(one.terminate());
  EXPECT_EQ(statistic.zombies.get(), 1u);
  EXPECT_EQ(manager.events, Events{});
}

TEST_F(SessionManagerTest, RefusedAndFailedStarts) {
  manager.refuse = true;
  manager.refusal = 1;
  for (const auto& datagram : {one.start(), one.data(0, 1), one.control(1), one.start()}) {
    in(datagram);
    EXPECT_EQ(statistic.zombies.get(), 1u);
  }
  EXPECT_EQ(statistic.unknown_index_errors.get() + statistic.allocation_errors.get(), 0u);
  manager.refusal = 0;
  in(one.start());
  in(two.start());
  EXPECT_EQ(audit_order(), std::vector<uint64_t>{1}) << "a failure leaves what was there";
  EXPECT_EQ(statistic.allocation_errors.get(), 2u);
  EXPECT_EQ(manager.events, Events{});
  for (const char last : {'1', '2'}) {
    EXPECT_TRUE(log.has(cv::log::Level::ERROR, std::string("SESSION_MANAGER: Session "
                                                           "00112233-4455-6677-8899-aabbccddee0") +
                                                   last + " allocation failed"));
  }
}

TEST_F(SessionManagerTest, StartRevivesAZombie) {
  in(one.data(0, 50, 7 * second_us));
  const int64_t zombie_created_us = clock.now_us();
  clock.advance_seconds(100);
  in(two.start());
  in(two.data(0, 1, 3 * second_us));
  in(one.start(9 * second_us));

  const Session& session = session_of(one);
  EXPECT_EQ(session.m_created_us, zombie_created_us);
  EXPECT_EQ(session.m_start_mt, 7 * second_us);
  EXPECT_EQ(session.m_last_activity_us, session_of(two).m_last_activity_us + 1);
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{2, 1}));
  EXPECT_EQ(statistic.zombies.get(), 0u);
  EXPECT_TRUE(log.has(cv::log::Level::INFO,
                      "SESSION_MANAGER: Session 00112233-4455-6677-8899-aabbccddee01 was created "
                      "out the zombie"));
  in(one.data(0, 40, 10 * second_us));
  EXPECT_EQ(session.m_last_activity_us, zombie_created_us + int64_t{3000000});
  EXPECT_EQ(manager.events, (Events{"created 2", "media 2", "created 1", "media 1"}));
}

TEST_F(SessionManagerTest, ACollidingIdActsOnTheFirstCall) {
  CallPackets collides(1, two.key().uuid);
  for (const auto& datagram : {one.start(), collides.start(), collides.data(0, 1)}) in(datagram);
  EXPECT_EQ(session_of(one).m_uuid, one.key().uuid);
  EXPECT_EQ(statistic.existing_index_errors.get(), 1u);
  EXPECT_TRUE(log.has_containing(" already exists: check call id"));
  in(collides.terminate());
  EXPECT_EQ(manager.events, (Events{"created 1", "media 1", "terminated 1"}));
}

TEST_F(SessionManagerTest, TimesOutAfter300SecondsAndNotBefore) {
  in(one.start());
  in(two.data(0, 1));
  clock.advance_us(SessionManager::timeout_us - 1);
  EXPECT_FALSE(manager.on_packet_idle());
  clock.advance_us(1);
  EXPECT_TRUE(manager.on_packet_idle());
  EXPECT_FALSE(manager.on_packet_idle());
  EXPECT_EQ(manager.events, (Events{"created 1", "timedout 1"})) << "no hook for the zombie";
  EXPECT_EQ(statistic.sessions.get() + statistic.zombies.get(), 0u);
  EXPECT_EQ(statistic.audit_executions.get(), 1u);
  EXPECT_EQ(log.count_containing(": 1000000000 1300000000"), 2u);
}

TEST_F(SessionManagerTest, AnAuditRemovesTenAtMost) {
  for (uint8_t number = 1; number <= 12; ++number) in(CallPackets(number).start());
  clock.advance_us(SessionManager::timeout_us);
  for (const std::size_t left : {2, 0}) {
    EXPECT_TRUE(manager.audit());
    EXPECT_EQ(statistic.sessions.get(), left);
  }
  EXPECT_FALSE(manager.audit());
}

TEST_F(SessionManagerTest, ActivityFollowsMediaTime) {
  struct Case {
    uint64_t start_mt, mt;
    int64_t alive_seconds;
  };
  for (const Case& c : {Case{5 * second_us, 25 * second_us, 320}, Case{0, 3600 * second_us, 3900},
                        Case{50 * second_us, 30 * second_us, 280}}) {
    in(one.start(c.start_mt));
    in(one.data(0, 1, c.mt));
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
      const uint64_t to_the_end = max / 2 - static_cast<uint64_t>(clock.now_us()) + start_mt;
      for (const auto& datagram :
           {one.start(start_mt), one.data(0, 1, mt), two.data(0, 1), one.data(0, 2, to_the_end),
            two.start(), one.terminate(), two.terminate()}) {
        in(datagram);
      }
    }
  }
  EXPECT_TRUE(manager.m_sessions.empty());
}

// What is in the table goes on as ever; the rest is counted, and said once in five seconds.
TEST_F(SessionManagerTest, AFullTableRefusesNewCallsUntilThereIsRoom) {
  manager.set_session_limit(2);
  const CallPackets three(3), four(4);
  const std::string said = "the session limit (2) is reached: ";
  for (const auto& datagram : {one.data(0, 1), two.start(), three.start(), three.data(0, 1),
                               three.control(1), one.start(), one.data(0, 2)}) {
    in(datagram);
  }
  EXPECT_EQ(manager.events, (Events{"created 2", "created 1", "media 1"}))
      << "a zombie has a place";
  EXPECT_EQ(manager.refused_sessions(), 3u);
  EXPECT_EQ(statistic.unknown_index_errors.get(), 3u);
  EXPECT_EQ(log.count_containing(said), 1u);
  clock.advance_seconds(5);
  manager.on_packet_idle();
  EXPECT_TRUE(log.has_containing(said + "(2) packets refused that would have made a session; (3)"));

  in(two.terminate());
  in(three.start());
  EXPECT_EQ(audit_order(), (std::vector<uint64_t>{1, 3}));
  clock.advance_seconds(300);
  in(four.start());
  EXPECT_EQ(audit_order(), std::vector<uint64_t>{4}) << "those timed out make room at once";
  EXPECT_EQ(manager.refused_sessions(), 3u);
}

TEST_F(SessionManagerTest, ABusyReaderAuditsOnlyAbove10000Sessions) {
  for (uint64_t id = 1; id <= 10000; ++id) in(CallPackets(id, Uuid{}).start());
  clock.advance_seconds(300);
  manager.on_packet_try();
  EXPECT_EQ(statistic.audit_calls.get(), 0u);
  in(one.data(1, 1, 300 * second_us));
  in(CallPackets(10001, Uuid{}).start());
  manager.on_packet_try();
  EXPECT_EQ(statistic.audit_calls.get(), 1u);
  EXPECT_EQ(statistic.audit_executions.get(), 1u);
  EXPECT_EQ(statistic.sessions.get(), 9991u);
}

}  // namespace
