// A stop signal ends the node in every phase of its life, whatever the broker does meanwhile.

#include <ostream>
#include <signal.h>

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

constexpr int stop_limit_s = 15;

enum class Phase { Connecting, Requesting, Waiting, Loading, Running };
enum class Broker { Healthy, Hung, Refusing };

struct Case {
  Phase phase;
  Broker broker;

  std::string name() const {
    static const char* const phases[] = {"Connecting", "Requesting", "Waiting", "Loading",
                                         "Running"};
    static const char* const brokers[] = {"Healthy", "Hung", "Refusing"};
    return std::string(phases[static_cast<int>(phase)]) + brokers[static_cast<int>(broker)];
  }
};

std::ostream& operator<<(std::ostream& out, const Case& value) { return out << value.name(); }

class NodeStop : public NodeFixture, public testing::WithParamInterface<Case> {
 protected:
  void set_broker(Broker state) {
    if (state == Broker::Hung) m_kafka.hang();
    if (state == Broker::Refusing) m_kafka.refuse();
  }

  /// Starts a node and brings it to the phase.
  void reach(Phase phase) {
    if (phase == Phase::Running) return start_running_node();
    start_node();
    if (phase == Phase::Connecting) {
      ASSERT_TRUE(node_logged("MESSAGE_BROKER: messages listening thread ["));
    } else if (phase == Phase::Requesting) {
      ASSERT_TRUE(node_logged("EVENT_DISPATCHER: dispatch to ["));
    } else {
      ASSERT_NO_FATAL_FAILURE(wait_for_delivery(2));
      if (phase == Phase::Waiting) return;
      send_to_node(sample_configuration(7, {{101, "vm-goodbye"}}));
      wait_for_delivery(3);
    }
  }

  /// Until the node knows that so many requests have arrived: from then on it has nothing to flush.
  void wait_for_delivery(int requests) {
    const std::string offset = std::to_string(requests - 1);
    ASSERT_TRUE(node_logged("message delivered to corvanth_request[0] at offset (" + offset + ")"))
        << node().output();
  }

  void start_running_node() {
    start_ready_node({"vm-goodbye"});
    const CallPackets call(1);
    send_start(call, 1, all_features, m_reports.port());
    send_audio(call, 0, prompt("vm-goodbye"));
    ASSERT_NE(m_reports.wait_for("vm-goodbye"), "") << node().output();
  }
};

TEST_P(NodeStop, EndsTheNodeWithinItsLimit) {
  const auto [phase, broker] = GetParam();
  // A broker that answers lets no node stay in these two.
  const bool bad_from_the_start = phase == Phase::Connecting || phase == Phase::Requesting;
  if (bad_from_the_start) set_broker(broker);
  ASSERT_NO_FATAL_FAILURE(reach(phase));
  if (!bad_from_the_start) set_broker(broker);
  node().send_signal(SIGTERM);
  EXPECT_EQ(node().wait_exit(stop_limit_s), 0) << node().output();
  const bool undelivered = phase == Phase::Requesting;
  EXPECT_EQ(node().output().find("message(s) were not delivered") != std::string::npos, undelivered)
      << node().output();
}

std::string case_name(const testing::TestParamInfo<Case>& info) { return info.param.name(); }

INSTANTIATE_TEST_SUITE_P(
    , NodeStop,
    testing::Values(Case{Phase::Connecting, Broker::Healthy}, Case{Phase::Connecting, Broker::Hung},
                    Case{Phase::Connecting, Broker::Refusing},
                    Case{Phase::Requesting, Broker::Hung},
                    Case{Phase::Requesting, Broker::Refusing},
                    Case{Phase::Waiting, Broker::Healthy}, Case{Phase::Waiting, Broker::Hung},
                    Case{Phase::Waiting, Broker::Refusing}, Case{Phase::Loading, Broker::Healthy},
                    Case{Phase::Loading, Broker::Hung}, Case{Phase::Loading, Broker::Refusing},
                    Case{Phase::Running, Broker::Healthy}, Case{Phase::Running, Broker::Hung},
                    Case{Phase::Running, Broker::Refusing}),
    case_name);

}  // namespace
}  // namespace cv::test
