// Makes the topics of the control protocol in a Kafka cluster, one partition each: answers to one
// node then keep their order.
#pragma once

#include <string>
#include <vector>

#include "messaging/messaging_client_properties.h"

namespace cv::tools {

/// Waits up to 10 seconds. Topics that exist are left as they are. What cannot be made is a WARNING
/// line and no more: a cluster may forbid it and have the topics from its administrator, or make
/// them on first use.
void create_topics(const std::string& brokers, const messaging::ClientProperties& properties,
                   const std::vector<std::string>& topics);

}  // namespace cv::tools
