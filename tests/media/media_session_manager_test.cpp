// What the plain model of the tables of calls (media_calls_model_test) does not say.
#include "media/media_session_manager.h"

#include <gtest/gtest.h>

#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/packet_builder.h"

namespace {

using namespace cv::media;
using cv::test::CallPackets;
using cv::test::deliver;

struct SessionManagerTest : testing::Test {
  void in(const std::vector<Datagram>& datagrams) {
    for (const Datagram& datagram : datagrams) deliver(manager, datagram);
  }

  cv::test::LogCapture log;
  cv::test::FakeClock clock;
  SessionManagerStatistic statistic;
  SessionManager manager{statistic, clock};
  const CallPackets one{1}, two{2}, three{3};
};

// What is in the table goes on as ever; the rest is counted, and said once in five seconds.
TEST_F(SessionManagerTest, SaysThatTheTableIsFullOnceInFiveSeconds) {
  manager.set_session_limit(2);
  const std::string said = "the session limit (2) is reached: ";
  in({one.data(0, 1), two.start(), three.start(), three.data(0, 1), three.control(1)});
  EXPECT_EQ(log.count_containing(said + "(1) packets"), 1u);
  EXPECT_EQ(log.count_containing(said), 1u);
  clock.advance_us(4999999);
  manager.on_packet_idle();
  EXPECT_EQ(log.count_containing(said), 1u);
  clock.advance_us(1);
  manager.on_packet_idle();
  EXPECT_TRUE(log.has_containing(said + "(2) packets refused that would have made a session; (3)"));
  in({three.start()});
  EXPECT_EQ(log.count_containing(said), 2u);
}

TEST_F(SessionManagerTest, ABusyReaderAuditsOnlyAbove10000Sessions) {
  for (uint64_t id = 1; id <= 10000; ++id) in({CallPackets(id, Uuid{}).start()});
  clock.advance_seconds(300);
  manager.on_packet_try();
  EXPECT_EQ(statistic.audit_calls.get(), 0u);
  in({CallPackets(10001, Uuid{}).start()});
  manager.on_packet_try();
  EXPECT_EQ(statistic.audit_calls.get(), 1u);
  EXPECT_EQ(statistic.sessions.get(), 9991u);
}

}  // namespace
