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
  EXPECT_TRUE(node_logged("DATABASE_DISPATCHER: database version (7) successfully built"));

  // A second configuration: what is already here is not asked for again.
  send_to_node(sample_configuration(8, {{101, "vm-goodbye"}, {103, "vm-sorry"}}));
  EXPECT_EQ(requests(4).at(3), request + R"(corvanth_sample_list", "ids":[103], "config_topic":")" +
                                   node_topic() + "\"}");
  send_to_node(sample_event(103, "vm-sorry"));
  EXPECT_TRUE(node_logged("DATABASE_DISPATCHER: database version (8) successfully built"));
  send_to_node(sample_configuration(9, {{103, "vm-sorry"}}));
  EXPECT_TRUE(node_logged("SERVICE: No sample configuration update is required"));
  expect_clean_stop();
}

TEST_F(NodeStart, BuildsWithWhatHasComeAfterFiveSecondsWithoutASample) {
  start_node();
  wait_for_first_requests();
  send_to_node(sample_configuration(7, {{101, "vm-goodbye"}, {102, "vm-sorry"}}));
  send_to_node(sample_event(101, "vm-goodbye"));
  EXPECT_TRUE(node_logged(
      "DATABASE_DISPATCHER: request has been timed out; trying to build what has been received"));
  EXPECT_TRUE(node_logged(
      "DATABASE_DISPATCHER: database version (7) built with (1) missed sample(s): 102"));
  EXPECT_TRUE(node_logged("PACKETS_READER: thread ["));

  send_to_node(sample_event(102, "vm-sorry"));
  EXPECT_TRUE(node_logged("DATABASE_DISPATCHER: database version (7) successfully built"))
      << "a late sample completes the database";
  expect_clean_stop();
}

TEST_F(NodeStart, FollowsTheVersionsThatTheManagerAnnounces) {
  start_ready_node({"vm-goodbye"});
  send_to_node(
      R"({"type":"corvanth_deadair_configuration","version":3,"data":[{"rule_id":1,"activity_hits":4}]})");
  ASSERT_TRUE(node_logged("DEADAIR_DISPATCHER: dead air configuration swapped"));

  broadcast(R"({"type":"config_manager_started"})");
  EXPECT_EQ(requests(4).at(3),
            R"({"type":"get_versions", "config_topic":")" + node_topic() + "\"}");
  const auto versions = [](int dead_air, int samples) {
    return R"({"type":"config_versions","data":{"corvanth_deadair_configuration":)" +
           std::to_string(dead_air) + R"(,"corvanth_sample_configuration":)" +
           std::to_string(samples) + "}}";
  };
  send_to_node(versions(3, 7));
  EXPECT_TRUE(node_logged("SERVICE: version is up-to-date, nothing to update"));
  send_to_node(versions(4, 7));
  EXPECT_TRUE(node_logged(
      "SERVICE: config [corvanth_deadair_configuration] version updated from (3) to (4)"));
  const std::string request = requests(5).at(4);
  EXPECT_NE(request.find("corvanth_deadair_configuration"), request.npos) << request;
  expect_clean_stop();
}

}  // namespace
}  // namespace cv::test
