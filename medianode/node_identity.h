// The name a node goes by on Kafka: its consumer group, and the topic of the answers meant for it.
#pragma once

#include <cstdint>
#include <string>

namespace cv::mn {

/// "corvanth_medianode_10o1o2o3_5060" for a node of port 5060 that reaches the first broker of
/// `kafka_broker` from 10.1.2.3. Without an address when that broker is given by name or cannot be
/// reached: "corvanth_medianode__5060", after a WARNING line, since Kafka gives each message to one node only
/// of those that go by one name.
std::string node_identity(const std::string& kafka_broker, uint16_t port);

}  // namespace cv::mn
