// A running node whose surroundings fail: the syslog daemon, the wall clock, a storm of signals.

#include <atomic>
#include <chrono>
#include <signal.h>
#include <thread>

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

constexpr const char* known = "vm-mailboxfull";

struct NodeFaults : NodeFixture {
  /// Whether a call with a known recording gives its two findings.
  testing::AssertionResult call_is_analysed(uint8_t number) {
    const CallPackets call(number);
    send_start(call, 1, all_features, m_reports.port());
    send_audio(call, 0, m_audio);
    send(call.terminate());
    const std::string uuid = uuid_of(number);
    for (const std::string type : {"corvanth_detection", "audio_activity"}) {
      if (m_reports.wait_for(R"({"type": ")" + type + R"(", "session_uuid": ")" + uuid).empty()) {
        return testing::AssertionFailure() << type << " of " << uuid << " is missing";
      }
    }
    return testing::AssertionSuccess();
  }
  static std::string uuid_of(uint8_t number) {
    char last[3];
    snprintf(last, sizeof last, "%02x", number);
    return "00112233-4455-6677-8899-aabbccddee" + std::string(last);
  }
  bool start_is_traced(uint8_t number) {
    return syslog_has("START | mt: 0, v: 2, f: R-, uuid: " + uuid_of(number));
  }

  const std::vector<int16_t> m_audio = prompt(known);
};

TEST_F(NodeFaults, CallsGoOnWhateverBecomesOfTheSyslogDaemon) {
  start_ready_node({known});
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
  for (uint8_t call = 22; call < 40; ++call) send_start(CallPackets(call), 1, all_features, 0);
  node().send_signal(SIGTERM);
  EXPECT_EQ(node().wait_exit(15), 0) << "a stop does not wait for it";
}

TEST_F(NodeFaults, TenThousandSignalsASecondCostNoPacketAndNoStop) {
  start_ready_node({known}, "media_receive_buffer_bytes=4194304");
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
  node().send_signal(SIGTERM);
  // Into the stop, but not beyond the process, which is reaped only afterwards.
  const std::string requested = "SERVICE: application stop has been requested";
  EXPECT_TRUE(eventually([&] { return node().output().find(requested) != std::string::npos; }));
  storm = false;
  source.join();
  EXPECT_EQ(node().wait_exit(), 0);
  EXPECT_EQ(node().output().find("the kernel dropped ("), std::string::npos) << "packets were lost";
}

}  // namespace
}  // namespace cv::test
