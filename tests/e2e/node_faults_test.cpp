// A running node whose surroundings fail: the syslog daemon, the wall clock, a storm of signals.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <map>
#include <signal.h>
#include <thread>

#include "e2e/node_fixture.h"
#include "support/jumping_clock.h"
#include "utils/utils_str.h"

namespace cv::test {
namespace {

constexpr const char* announcement = "vm-mailboxfull";

struct NodeFaults : NodeFixture {
  static std::string uuid_of(uint8_t number) {
    return utils::str::print_uuid(CallPackets(number).key().uuid.data());
  }
  /// How a report on the call begins.
  static std::string finding(const std::string& type, uint8_t number) {
    return R"({"type": ")" + type + R"(", "session_uuid": ")" + uuid_of(number);
  }

  /// Whether a call with a known recording gives its two findings.
  testing::AssertionResult call_is_analysed(uint8_t number) {
    const CallPackets call(number);
    send_start(call);
    send_audio(call, 0, m_audio);
    send(call.terminate());
    for (const std::string type : {"corvanth_detection", "audio_activity"}) {
      if (m_reports.wait_for(finding(type, number)).empty()) {
        return testing::AssertionFailure() << finding(type, number) << " is missing";
      }
    }
    return testing::AssertionSuccess();
  }
  bool start_is_traced(uint8_t number) {
    return syslog_has("START | mt: 0, v: 2, f: R-, uuid: " + uuid_of(number));
  }

  /// When the node wrote the newest line with `text`, which it has; in seconds since the epoch.
  int64_t time_of_line(const std::string& text) {
    const std::string output = node().output();
    const size_t begin = output.rfind('\n', output.rfind(text)) + 1;  // npos + 1 is 0
    std::tm stamp{};
    const char* end = strptime(output.c_str() + begin, "%Y.%m.%d %H:%M:%S.", &stamp);
    EXPECT_NE(end, nullptr) << output.substr(begin, 100);
    return timegm(&stamp);
  }

  const std::vector<int16_t> m_audio = prompt(announcement);
};

TEST_F(NodeFaults, CallsGoOnWhateverBecomesOfTheSyslogDaemon) {
  start_ready_node({announcement});
  EXPECT_TRUE(call_is_analysed(1));
  EXPECT_TRUE(start_is_traced(1));

  m_sandbox.hang_syslog(true);
  for (uint8_t call = 2; call < 20; ++call) ASSERT_TRUE(call_is_analysed(call));
  EXPECT_EQ(syslog().find(uuid_of(19)), std::string::npos) << "it does not hang";
  m_sandbox.hang_syslog(false);
  for (uint8_t call = 2; call < 20; ++call) EXPECT_TRUE(start_is_traced(call)) << "nothing is lost";

  m_sandbox.end_syslog();
  EXPECT_TRUE(call_is_analysed(20)) << "no daemon";
  m_sandbox.start_syslog();
  EXPECT_TRUE(call_is_analysed(21));
  EXPECT_TRUE(start_is_traced(21)) << "/dev/log was made anew";

  m_sandbox.hang_syslog(true);
  for (uint8_t call = 22; call < 40; ++call) send_start(CallPackets(call));
  node().send_signal(SIGTERM);
  EXPECT_EQ(node().wait_exit(15), 0) << "a stop does not wait for it";
}

TEST_F(NodeFaults, AWallClockThatJumpsMovesTheStampsOfTheLogAndNothingElse) {
  constexpr int64_t hour = 3600, day = 86400;
  JumpingClock clock(m_sandbox);
  m_launcher = clock.launcher();
  m_launcher.emplace_back("TZ=UTC0");
  start_ready_node({announcement});
  const CallPackets running(1);
  const std::vector<int16_t> lead(8000);
  send_start(running);
  send_audio(running, 0, lead);

  uint8_t call = 1;
  for (const int64_t jump : {hour, -day}) {
    clock.jump(jump);
    const int64_t before = clock.now();
    EXPECT_TRUE(call_is_analysed(++call));
    const std::string sent = "sent: 0, report: " + finding("corvanth_detection", call);
    ASSERT_TRUE(node_logged(sent));
    EXPECT_GE(time_of_line(sent), before);
    EXPECT_LE(time_of_line(sent), clock.now());
  }
  send_audio(running, 0, m_audio, static_cast<uint32_t>(lead.size() / 160 + 1));
  send(running.terminate());
  EXPECT_NE(m_reports.wait_for(finding("corvanth_detection", 1)), "")
      << "the call that was running all the time";

  // A sample that does not come is waited for five seconds, neither less nor a day more.
  const auto asked = std::chrono::steady_clock::now();
  const std::string block = std::to_string(m_media_port) + " statistic";
  const size_t blocks = syslog_count(block);
  send_to_node(sample_configuration(8, {{101, announcement}, {102, "privacy-prompt"}}));
  ASSERT_TRUE(node_logged(R"("ids":[102])"));
  clock.jump(day);
  const std::string gave_up = "DATABASE_DISPATCHER: request has been timed out";
  EXPECT_TRUE(eventually([&] {
    clock.jump(-hour);  // on and on, so that every thread's waits are met
    return node().output().find(gave_up) != std::string::npos;
  })) << node().output();
  EXPECT_GE(std::chrono::steady_clock::now() - asked, std::chrono::seconds(5));
  EXPECT_TRUE(eventually([&] { return syslog_count(block) > blocks; })) << "every five seconds too";
  EXPECT_TRUE(call_is_analysed(++call));
  stop_node();
  std::map<std::string, int> reported;
  for (const std::string& text : m_reports.texts())
    ++reported[text.substr(0, text.find(", \"session_t"))];
  for (uint8_t number = 1; number <= call; ++number) {
    EXPECT_EQ(reported[finding("corvanth_detection", number) + "\""], 1) << int{number};
    EXPECT_EQ(reported[finding("audio_activity", number) + "\""], 1) << int{number};
  }
}

TEST_F(NodeFaults, TenThousandSignalsASecondCostNoPacketAndNoStop) {
  start_ready_node({announcement}, "media_receive_buffer_bytes=4194304");
  std::atomic<bool> storm{true};
  std::atomic<size_t> sent{0};
  std::thread source([&] {
    const int numbers[] = {SIGHUP, SIGUSR1, SIGUSR2};
    auto next = std::chrono::steady_clock::now();
    for (; storm; ++sent) {
      node().send_signal(numbers[sent % 3]);
      next += std::chrono::microseconds(100);
      std::this_thread::sleep_until(next);
    }
  });
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  uint8_t call = 0;
  do {
    EXPECT_TRUE(call_is_analysed(++call));
  } while (call < 100 && (sent < 10000 || std::chrono::steady_clock::now() < end));
  EXPECT_GT(sent, 10000u);
#ifdef __SANITIZE_THREAD__
  // No stop to be had here: GCC 12's thread sanitizer keeps one signal mask to go back to per thread. A
  // signal that arrives while it calls the handlers of deferred ones makes it save the mask that blocks
  // everything, and the thread hears no signal any more. Twenty lines of C alone show the same.
  storm = false;
  source.join();
  EXPECT_EQ(node().output().find("ThreadSanitizer"), std::string::npos) << node().output();
  return;
#endif
  node().send_signal(SIGTERM);
  // Into the stop, but not beyond the process, which is reaped only afterwards. (The line of the SIGTERM
  // may be one of those that such a storm costs.)
  EXPECT_TRUE(eventually([&] {
    return node().output().find("PACKETS_READER: thread [") !=
           node().output().rfind("PACKETS_READER: thread [");
  }));
  storm = false;
  source.join();
  EXPECT_EQ(node().wait_exit(), 0);
  EXPECT_EQ(node().output().find("the kernel dropped ("), std::string::npos) << "packets were lost";
}

}  // namespace
}  // namespace cv::test
