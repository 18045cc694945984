#include "app/app_signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "app/scripted_service.h"
#include "support/log_capture.h"

namespace {

using cv::app::ServiceBase;
using cv::app::SignalRecord;

TEST(SignalRecord, GivesNumbersInOrderAndTheLatestWhenItOverflows) {
  SignalRecord record;
  // Enough rounds to pass the end of the slots at every offset.
  for (int round = 0; round < 70; ++round) {
    for (int number : {1, 64, 15}) record.on_signal(number);
    for (int number : {1, 64, 15, 0}) EXPECT_EQ(record.take(), number);
  }
  const int count = static_cast<int>(SignalRecord::capacity) + 9;
  for (int i = 1; i <= count; ++i) record.on_signal(i);
  for (int i = 10; i <= count; ++i) EXPECT_EQ(record.take(), i);
  EXPECT_EQ(record.take_lost(), 9u);
  EXPECT_EQ(record.take_lost(), 0u);
}

/// As a process may be started, and must hear its signals all the same. But SIGPIPE, which is to be ignored
/// and not to wait.
void block_signals() {
  sigset_t blocked;
  sigfillset(&blocked);
  sigdelset(&blocked, SIGPIPE);
  pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
}

TEST(Signals, SetTheirFlagsAtOnceAndTheirLinesAreWrittenOutsideTheHandler) {
  block_signals();
  cv::test::LogCapture log;
  cv::test::ScriptedService service;
  service.script["work"] = [&] {
    log.clear();
    std::string flags;
    for (int number : {SIGPIPE, SIGHUP, SIGUSR1, SIGUSR2, SIGTERM}) {
      raise(number);
      for (bool flag : {ServiceBase::m_signal_update.load(), ServiceBase::m_signal_user1.load(),
                        ServiceBase::m_signal_user2.load(), ServiceBase::stop_requested()})
        flags += flag ? 'x' : '.';
    }
    EXPECT_EQ(flags, "....x...xx..xxx.xxxx");
    EXPECT_TRUE(log.texts().empty());
    EXPECT_TRUE(ServiceBase::wait_for_signal(-1)) << "what came before counts";
    const auto texts = log.texts();
    EXPECT_EQ(texts.size(), 8u);
    EXPECT_EQ(texts.at(3), "SYSTEM app SERVICE: user action #1 has been requested");
    EXPECT_EQ(texts.at(5), "SYSTEM app SERVICE: user action #2 has been requested");
    EXPECT_EQ(texts.at(6), "SYSTEM app SERVICE: signal 15 has been received");
    EXPECT_FALSE(ServiceBase::wait_for_signal(0));
    ServiceBase::wake_main_thread();
    return ServiceBase::wait_for_signal(-1);
  };
  for (int run = 0; run < 2; ++run) EXPECT_EQ(service.run({}), 0) << "a start clears the flags";
}

// In a process of its own, whose hook does not return once it is told to stop.
TEST(SignalsDeathTest, AStopThatDoesNotEndIsEndedBySignalOrTime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto stop_and_hang = [](int second_signal) {
    block_signals();
    cv::test::ScriptedService service;
    service.script["work"] = [&]() -> bool {
      raise(SIGTERM);
      if (second_signal != 0) raise(second_signal);
      for (;;) pause();
    };
    service.run({});
  };
  for (int number : {SIGTERM, SIGINT, SIGQUIT}) {
    EXPECT_EXIT(stop_and_hang(number), testing::KilledBySignal(number), "");
  }
  EXPECT_EXIT(stop_and_hang(0), testing::ExitedWithCode(1),
              "SERVICE: the stop takes too long, ending at once");
}

}  // namespace
