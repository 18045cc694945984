// Packet reader and session manager against the plain model of both: the same counters and the same
// hooks, whatever arrives and whether the packets that wait are looked at ahead of their turn or not.
#include <algorithm>
#include <gtest/gtest.h>
#include <random>

#include "media/media_stream_manager.h"
#include "support/fake_clock.h"
#include "support/packet_builder.h"
#include "support/plain_calls.h"
#include "support/stepped_reader.h"
#include "support/workload.h"

namespace {

using namespace cv::media;
using cv::rc_ptr;
using cv::test::CallHook;

/// Refuses the calls that want no analysis.
struct Manager : StreamManager {
  using StreamManager::StreamManager;

  Session* create_session(const StartPacket& packet, int& error) override {
    Session* session = StreamManager::create_session(packet, error);
    if (packet.features() != 0) return session;
    rc_ptr<Session>{session}.reset();
    error = 1;
    return nullptr;
  }
  void on_session_created(rc_ptr<Session> session, StartPacket&) override {
    record(CallHook::created, *session);
  }
  void on_session_media(rc_ptr<Session> session, DataPacket& packet) override {
    record(CallHook::media, *session);
    StreamManager::on_session_media(std::move(session), packet);
  }
  void on_session_control(rc_ptr<Session> session, ControlPacket&) override {
    record(CallHook::control, *session);
  }
  void on_session_terminated(rc_ptr<Session> session, TerminatePacket&) override {
    record(CallHook::terminated, *session);
  }
  void on_session_timedout(rc_ptr<Session> session) override {
    record(CallHook::timed_out, *session);
  }
  void record(CallHook hook, const Session& session) { hooks.push_back({hook, session.m_id}); }

  decltype(cv::test::PlainCalls::hooks) hooks;
};

/// Datagrams of calls in disorder: numbers that are missing or repeated, calls that end and go on, media
/// times of the clock and absurd ones, and datagrams that are damaged or of a length of their own.
class Traffic {
 public:
  explicit Traffic(uint64_t calls) : m_calls(calls) {}

  Datagram next(uint64_t now_us) {
    Datagram datagram = whole(now_us);
    if (one_in(20)) datagram.resize(datagram.size() + below(5) - 2);
    if (one_in(50)) datagram.resize(one_in(2) ? 39 + below(3) : 1375 + below(3));
    while (one_in(10)) {
      const uint64_t at = below(one_in(2) ? 8 : datagram.size());
      datagram[at] = static_cast<unsigned char>(m_random());
    }
    return datagram;
  }
  uint64_t below(uint64_t limit) { return m_random() % limit; }
  bool one_in(uint64_t count) { return below(count) == 0; }

 private:
  Datagram whole(uint64_t now_us) {
    const cv::test::CallPackets call(1 + below(m_calls), Uuid{});
    const uint64_t mt = one_in(50) ? m_random() << 32 | m_random() : now_us + below(3) * 1000000;
    switch (below(24)) {
      case 0:
      case 1:
        return call.start(mt);
      case 2:
        return call.start(StartFields{}, mt);
      case 3:
        return call.control(1, mt);
      case 4:
        return call.feature_update(0x3C, mt);
      case 5:
        return call.terminate(mt);
      default:
        ++m_sent;
        return call.data(static_cast<uint16_t>(below(2)),
                         static_cast<uint32_t>(m_sent / m_calls / 8 + below(4)),
                         std::vector<int16_t>(below(3)), mt);
    }
  }

  const uint64_t m_calls;
  uint64_t m_sent = 0;
  std::mt19937 m_random{1};
};

void expect_what_the_model_says(uint64_t calls, std::size_t limit, bool looks_ahead) {
  SCOPED_TRACE(calls);
  SCOPED_TRACE(looks_ahead);
  cv::test::FakeClock clock;
  StreamManagerStatistic statistic;
  Manager manager(statistic, clock);
  manager.set_session_limit(limit);
  PacketReaderStatistic packets;
  cv::test::SteppedReader reader(packets, manager, looks_ahead ? &manager : nullptr);
  cv::test::PlainCalls expected;
  expected.limit = limit;
  Traffic traffic(calls);
  uint64_t most = 0;
  for (std::size_t turn = 0; turn < cv::test::scaled(400); ++turn) {
    const auto now_us = static_cast<uint64_t>(clock.now_us());
    for (int i = 0; i < 100; ++i) {
      const Datagram datagram = traffic.next(now_us);
      reader.read_from(datagram.data(), datagram.size());
      expected.deliver(datagram, now_us);
    }
    do reader.step();
    while (packets.elements.get() > 0);
    most = std::max(most, statistic.sessions.get());
    manager.on_packet_idle();
    expected.idle(now_us);
    ASSERT_TRUE(expected.agrees(packets, statistic, manager.refused_sessions())) << turn;
    ASSERT_EQ(manager.hooks, expected.hooks) << turn;
    // A step that ends the calls of which nothing was heard, now and then.
    clock.advance_seconds(static_cast<int64_t>(traffic.one_in(20) ? 300 : traffic.below(3)));
  }
  EXPECT_GT(expected.hooks.size(), 2000u / cv::test::slowdown);
  EXPECT_GE(most, looks_ahead ? SessionManager::look_ahead_sessions : 12);
}

TEST(CallsModel, AgreesOnTrafficInDisorder) {
  expect_what_the_model_says(12, 0, false);
  expect_what_the_model_says(40, 15, false);
  for (const bool looks_ahead : {false, true}) {
    expect_what_the_model_says(SessionManager::look_ahead_sessions + 200, 0, looks_ahead);
  }
}

}  // namespace
