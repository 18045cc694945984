#include "medianode/node_identity.h"

#include <gtest/gtest.h>

namespace {

TEST(NodeIdentity, HoldsTheAddressTowardsTheFirstBrokerWhenThatIsGivenByAddress) {
  const struct {
    const char* brokers;
    const char* address;
  } cases[] = {{"127.0.0.1:9092", "127o0o0o1"},
               {"127.0.0.1", "127o0o0o1"},
               {"127.0.0.1:9092,kafka.example:9092", "127o0o0o1"},
               {"kafka.example:9092,127.0.0.1:9092", ""},
               {"127.0.0:9092", ""},
               {"0.0.0.0:9092", ""},
               {"", ""}};
  for (const auto& c : cases) {
    EXPECT_EQ(cv::mn::node_identity(c.brokers, 5060),
              std::string("corvanth_medianode_") + c.address + "_5060")
        << c.brokers;
  }
}

}  // namespace
