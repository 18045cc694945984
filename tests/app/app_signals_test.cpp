#include "app/app_signals.h"

#include <gtest/gtest.h>
#include <thread>

#include "app/scripted_service.h"
#include "core/thread.h"
#include "support/log_capture.h"

namespace {

using cv::app::ServiceBase;
using cv::app::SignalRecord;
using cv::test::LogCapture;
using cv::test::ScriptedService;
using Texts = std::vector<std::string>;

std::vector<int> take_all(SignalRecord& record) {
  std::vector<int> numbers;
  while (const int number = record.take()) numbers.push_back(number);
  return numbers;
}

TEST(SignalRecord, GivesNumbersInOrderAndTheLatestWhenItOverflows) {
  SignalRecord record;
  EXPECT_FALSE(record.pending());
  // Enough rounds to pass the end of the slots at every offset.
  for (int round = 0; round < 30; ++round) {
    for (int number : {1, 2, 3, 64, 15}) record.on_signal(number);
    EXPECT_TRUE(record.pending());
    EXPECT_EQ(take_all(record), (std::vector<int>{1, 2, 3, 64, 15}));
    EXPECT_FALSE(record.pending());
  }
  const int count = static_cast<int>(SignalRecord::capacity) + 9;
  for (int i = 0; i < count; ++i) record.on_signal(1 + i);
  const auto taken = take_all(record);
  ASSERT_EQ(taken.size(), SignalRecord::capacity);
  EXPECT_EQ(taken.front(), 10);
  EXPECT_EQ(taken.back(), count);
  EXPECT_EQ(record.take_lost(), 9u);
  EXPECT_EQ(record.take_lost(), 0u);
  record.on_signal(7);
  EXPECT_EQ(take_all(record), std::vector<int>{7});
}

TEST(SignalRecord, KeepsCountAcrossThreads) {
  constexpr int count = 20000;
  SignalRecord record;
  std::thread signals([&] {
    for (int i = 0; i < count; ++i) record.on_signal(i % 2 == 0 ? 10 : 12);
  });
  uint64_t seen = 0;
  const auto look = [&] {
    for (const int number : take_all(record)) {
      EXPECT_TRUE(number == 10 || number == 12) << number;
      ++seen;
    }
    seen += record.take_lost();
  };
  while (seen < count / 2) look();
  signals.join();
  look();
  EXPECT_EQ(seen, static_cast<uint64_t>(count));
}

class SignalsTest : public testing::Test {
 protected:
  /// Runs a service whose work is `work`; the lines between its milestones.
  Texts lines_of(std::function<bool()> work) {
    m_log.clear();
    ScriptedService service;
    service.work = std::move(work);
    EXPECT_EQ(service.run({}), 0);
    Texts texts = m_log.texts();
    return Texts(texts.begin() + 2, texts.end() - 1);
  }

  cv::test::DefaultSignals m_signals_put_back;
  LogCapture m_log;
};

std::string received(int number) {
  return "SYSTEM app SERVICE: signal " + std::to_string(number) + " has been received";
}

TEST_F(SignalsTest, EachSetsItsFlagAndItsLinesComeInOrder) {
  const std::string tag = "SYSTEM app SERVICE: ";
  const struct {
    int number;
    std::string line;
    int stop;
    bool update, user1, user2;
  } cases[] = {
      {SIGINT, tag + "application stop has been requested", 1, false, false, false},
      {SIGQUIT, tag + "application stop has been requested", 1, false, false, false},
      {SIGTERM, tag + "application stop has been requested", 1, false, false, false},
      {SIGHUP, tag + "update has been requested", 0, true, false, false},
      {SIGUSR1, tag + "user action #1 has been requested", 0, false, true, false},
      {SIGUSR2, tag + "user action #2 has been requested", 0, false, false, true},
  };
  for (const auto& c : cases) {
    const Texts lines = lines_of([&] {
      EXPECT_FALSE(ServiceBase::m_signal_stop || ServiceBase::m_signal_update ||
                   ServiceBase::m_signal_user1 || ServiceBase::m_signal_user2)
          << "a start clears what an earlier run left";
      raise(c.number);
      raise(SIGPIPE);
      return true;
    });
    EXPECT_EQ(lines, (Texts{received(c.number), c.line}));
    EXPECT_EQ(ServiceBase::m_signal_stop, c.stop);
    EXPECT_EQ(ServiceBase::stop_requested(), c.stop != 0);
    EXPECT_EQ(ServiceBase::m_signal_update, c.update);
    EXPECT_EQ(ServiceBase::m_signal_user1, c.user1);
    EXPECT_EQ(ServiceBase::m_signal_user2, c.user2);
  }
}

TEST_F(SignalsTest, LinesAreWrittenOutsideTheHandlerWhenTheMainThreadComesBy) {
  lines_of([&] {
    const size_t before = m_log.lines().size();
    raise(SIGUSR1);
    raise(SIGTERM);
    EXPECT_EQ(m_log.lines().size(), before);
    ServiceBase::report_signals();
    EXPECT_EQ(m_log.lines().size(), before + 4);
    EXPECT_EQ(m_log.texts()[before], received(SIGUSR1));
    EXPECT_EQ(m_log.texts()[before + 2], received(SIGTERM));
    ServiceBase::report_signals();
    EXPECT_EQ(m_log.lines().size(), before + 4);
    return true;
  });
}

TEST_F(SignalsTest, MoreThanTheRecordHoldsAreCounted) {
  const Texts lines = lines_of([] {
    for (size_t i = 0; i < SignalRecord::capacity + 3; ++i) raise(SIGUSR2);
    return true;
  });
  EXPECT_EQ(lines.size(), 2 * SignalRecord::capacity + 1);
  EXPECT_EQ(lines.back(), "WARNING app SERVICE: 3 more signals have been received before");
}

TEST_F(SignalsTest, AStopDuringStartUpIsSeenByTheWork) {
  ScriptedService service;
  bool requested = false;
  service.doing_start = [] { return raise(SIGTERM) == 0; };
  service.work = [&] {
    requested = ServiceBase::stop_requested() && ServiceBase::wait_for_signal(-1);
    return true;
  };
  EXPECT_EQ(service.run({}), 0);
  EXPECT_TRUE(requested);
  EXPECT_TRUE(m_log.has_containing("application stop has been requested"));
}

TEST_F(SignalsTest, WaitingEndsBySignalByWakeUpAndByTimeOut) {
  lines_of([] {
    EXPECT_FALSE(ServiceBase::wait_for_signal(0));
    raise(SIGUSR1);
    EXPECT_TRUE(ServiceBase::wait_for_signal(-1)) << "one that came before counts";
    EXPECT_FALSE(ServiceBase::wait_for_signal(1));

    std::thread waker;
    {
      const cv::BlockedSignals blocked;
      waker = std::thread([] { ServiceBase::wake_main_thread(); });
    }
    EXPECT_TRUE(ServiceBase::wait_for_signal(-1));
    waker.join();

    std::thread killer;
    {
      const cv::BlockedSignals blocked;
      // To the process: only this thread can take it.
      killer = std::thread([] { kill(getpid(), SIGTERM); });
    }
    while (!ServiceBase::stop_requested()) ServiceBase::wait_for_signal(-1);
    killer.join();
    return true;
  });
}

}  // namespace
