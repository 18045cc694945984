// How a node gets its configuration, and what it does before and after.

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

using NodeStart = NodeFixture;

bool port_is_open(uint16_t port) {
  // A bound port refuses a second socket.
  net::Socket probe;
  return !probe.open(port, 0);
}

TEST_F(NodeStart, AsksForItsConfigurationAndOpensThePortWithTheFirstDatabase) {
  start_node();
  const std::string tail = R"(", "config_topic":")" + node_topic() + "\"}";
  const std::string request = R"({"type":"configuration_request", "configuration":")";
  EXPECT_EQ(requests(2),
            (std::vector<std::string>{request + "corvanth_deadair_configuration" + tail,
                                      request + "corvanth_sample_configuration" + tail}));
  EXPECT_FALSE(port_is_open(m_media_port));

  const std::string samples[] = {sample_event(101, "vm-goodbye"), sample_event(102, "vm-sorry")};
  send_to_node(sample_configuration(7, {{101, "vm-goodbye"}, {102, "vm-sorry"}}));
  send_to_node(samples[0]);
  ASSERT_TRUE(node_logged("DATABASE_DISPATCHER: received sample (101) with ("));
  EXPECT_FALSE(port_is_open(m_media_port)) << "one sample is still missing";
  EXPECT_EQ(requests(3).at(2), request + "corvanth_sample_list" + tail) << "all of them, no ids";
  send_to_node(samples[1]);
  ASSERT_TRUE(node_logged("PACKETS_READER: thread ["));
  EXPECT_TRUE(port_is_open(m_media_port));

  broadcast(R"({"type":"config_manager_started"})");
  EXPECT_EQ(requests(4).at(3), R"({"type":"get_versions)" + tail);
  send_to_node(sample_configuration(9, {{102, "vm-sorry"}}));
  EXPECT_TRUE(node_logged("SERVICE: No sample configuration update is required"));
  stop_node();
}

}  // namespace
}  // namespace cv::test
