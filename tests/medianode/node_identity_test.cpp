#include "medianode/node_identity.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

TEST(NodeIdentity, IsTheAddressTowardsTheFirstBrokerAndThePort) {
  const struct {
    const char* brokers;
    const char* address;
  } cases[] = {
      {"127.0.0.1:9092", "127o0o0o1"},
      {"127.0.0.1:9092,kafka.example:9092", "127o0o0o1"},
      // Several nodes without an address would go by one name.
      {"kafka.example:9092,127.0.0.1:9092", ""},
      {"", ""},
      {"0.0.0.0:9092", ""},
  };
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    const std::string expected = std::string("corvanth_medianode_") + c.address + "_5060";
    EXPECT_EQ(cv::mn::node_identity(c.brokers, 5060), expected) << c.brokers;
    EXPECT_EQ(log.has_containing("of all nodes with the identity [" + expected + "]"),
              *c.address == '\0');
  }
}

}  // namespace
