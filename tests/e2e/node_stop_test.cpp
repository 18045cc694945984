// A stop signal ends the node in every phase of its life, whatever the broker does meanwhile.

#include <tuple>

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

/// Phase of the node's life, and what the broker does in it.
using Case = std::tuple<std::string, std::string>;

class NodeStop : public NodeFixture, public testing::WithParamInterface<Case> {
 protected:
  // An unanswered heartbeat breaks the connection, and so ends what waits for a hung broker. Hardly a
  // heartbeat is sent here: the stop must not need one.
  NodeStop() : NodeFixture("kafka_properties_file = /etc/tarnwell/corvanth/kafka.properties\n") {
    m_sandbox.write_etc("kafka.properties", "heartbeat.interval.ms=5900\n");
  }

  void set_broker(const std::string& state) {
    if (state == "Hung") mock().hang();
    if (state == "Refusing") mock().refuse();
  }

  /// Starts a node and brings it to the phase.
  void reach(const std::string& phase) {
    if (phase == "Running") return start_running_node();
    start_node();
    if (phase == "Connecting") {
      ASSERT_TRUE(node_logged("MESSAGE_BROKER: messages listening thread ["));
    } else if (phase == "Requesting") {
      ASSERT_TRUE(node_logged("EVENT_DISPATCHER: dispatch to ["));
    } else {
      ASSERT_NO_FATAL_FAILURE(wait_for_delivery(2));
      if (phase == "Waiting") return;
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
    send_start(call);
    send_audio(call, 0, prompt("vm-goodbye"));
    ASSERT_NE(m_reports.wait_for("vm-goodbye"), "") << node().output();
  }
};

TEST_P(NodeStop, EndsTheNodeWithinItsLimit) {
  const auto& [phase, broker] = GetParam();
  const bool bad_from_the_start = phase == "Connecting" || phase == "Requesting";
  if (bad_from_the_start) set_broker(broker);
  ASSERT_NO_FATAL_FAILURE(reach(phase));
  if (!bad_from_the_start) set_broker(broker);
  stop_node();
  const bool undelivered = phase == "Requesting";
  EXPECT_EQ(node().output().find("message(s) were not delivered") != std::string::npos, undelivered)
      << node().output();
}

std::string case_name(const testing::TestParamInfo<Case>& info) {
  return std::get<0>(info.param) + std::get<1>(info.param);
}

INSTANTIATE_TEST_SUITE_P(, NodeStop,
                         testing::Combine(testing::Values("Connecting", "Waiting", "Loading",
                                                          "Running"),
                                          testing::Values("Healthy", "Hung", "Refusing")),
                         case_name);
// A broker that answers lets no node stay in this phase.
INSTANTIATE_TEST_SUITE_P(WhileAsking, NodeStop,
                         testing::Combine(testing::Values("Requesting"),
                                          testing::Values("Hung", "Refusing")),
                         case_name);

}  // namespace
}  // namespace cv::test
