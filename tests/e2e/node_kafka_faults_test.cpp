// A real broker that fails under a running node: calls are analysed and reported all the while, and the
// control plane comes back by itself. Each test prints how long that took.

#include <chrono>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <thread>

#include "e2e/kafka_site.h"

namespace cv::test {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

/// Calls one after the other, in real time and with a pause, until stopped; each plays the recording.
class SteadyCalls {
 public:
  SteadyCalls(KafkaSite& site, const Recording& recording)
      : m_site(site),
        m_recording(recording),
        m_thread([this](const std::stop_token& stop) { run(stop); }) {}

  /// Ends the last call and expects a finding on each of them.
  void finish() {
    m_thread.request_stop();
    m_thread.join();
    EXPECT_GT(m_calls, 0);
    for (int call = 0; call < m_calls; ++call) {
      EXPECT_TRUE(m_site.reported(CallPackets(number(call)), m_recording)) << "call " << call;
    }
    std::printf("CALLS %d\n", m_calls);
  }

 private:
  static uint8_t number(int call) { return static_cast<uint8_t>(100 + call); }

  void run(const std::stop_token& stop) {
    do {
      const CallPackets call(number(m_calls++));
      m_site.send_start(call);
      std::span<const int16_t> left(m_recording.samples);
      for (uint32_t seq = 1; !left.empty(); ++seq) {
        const auto packet = left.first(std::min<size_t>(160, left.size()));
        m_site.send_audio(call, 0, packet, seq);
        left = left.subspan(packet.size());
        std::this_thread::sleep_for(20ms);
      }
    } while (!stop.stop_requested());
  }

  KafkaSite& m_site;
  const Recording m_recording;
  int m_calls = 0;
  std::jthread m_thread;
};

struct NodeKafkaFaults : testing::Test {
  const std::vector<Recording> m_prompts = english_prompts(8000);
  KafkaBroker m_broker;
  KafkaSite m_site{m_broker.address()};
};

TEST_F(NodeKafkaFaults, CallsRunOnAndWhatIsNewArrivesWhenTheBrokerIsBack) {
  m_site.add_recording(m_prompts[0]);
  m_site.start_manager();
  m_site.start_node();
  ASSERT_TRUE(m_site.node_is_ready()) << m_site.node().output();
  ASSERT_TRUE(m_site.finds(m_prompts[0], 1));
  SteadyCalls calls(m_site, m_prompts[0]);
  const struct {
    const char* what;
    std::function<void()> fail;
    std::chrono::seconds time;
    std::function<void()> recover;
  } faults[] = {
      {"broker killed", [&] { m_broker.kill(); }, 3s, [&] { m_broker.up(); }},
      {"broker stopped in its tracks", [&] { m_broker.pause(); }, 30s, [&] { m_broker.resume(); }},
  };
  uint8_t known = 1;
  for (const auto& fault : faults) {
    fault.fail();
    // The manager wants to announce it, and cannot yet.
    const Recording& added = m_prompts[known++];
    m_site.add_recording(added);
    std::this_thread::sleep_for(fault.time);
    fault.recover();
    const auto since = Clock::now();
    EXPECT_TRUE(m_site.node_loaded(known)) << m_site.node().output();
    print_recovery(fault.what, since);
    EXPECT_TRUE(m_site.finds(added, known));
  }
  calls.finish();
  m_site.stop_node();
}

TEST_F(NodeKafkaFaults, KilledAndStartedAgainWhileADatabaseLoads) {
  constexpr size_t count = 150;
  for (size_t i = 0; i < count; ++i) m_site.add_recording(m_prompts[i]);
  // Slowly enough that the broker goes down in the midst of it.
  m_site.start_manager({"--rate", "80000"});
  m_site.start_node();
  ASSERT_TRUE(m_site.node_logged("DATABASE_DISPATCHER: received sample ("))
      << m_site.node().output();
  m_broker.kill();
  ASSERT_FALSE(m_site.node_is_loaded(count)) << "that was too late";
  // For so long that the node gives its topics up, and nothing it has read is committed.
  ASSERT_TRUE(m_site.node_logged("Revoke partitions", m_site.node().output().size()));
  m_broker.up();
  const auto since = Clock::now();
  // What did not come in time is built in later.
  EXPECT_TRUE(m_site.node_loaded(count, 120)) << m_site.node().output();
  print_recovery("broker killed while loading", since);
  for (size_t i : {size_t{0}, count - 1}) {
    EXPECT_TRUE(m_site.finds(m_prompts[i], static_cast<uint8_t>(1 + i))) << m_prompts[i].name;
  }
  m_site.stop_node();
}

}  // namespace
}  // namespace cv::test
