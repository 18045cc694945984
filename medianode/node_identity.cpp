#include "medianode/node_identity.h"

#include <algorithm>
#include <arpa/inet.h>

#include "net/net_hosts.h"

namespace cv::mn {

std::string node_identity(const std::string& kafka_broker, uint16_t port) {
  const std::string host =
      kafka_broker.substr(0, kafka_broker.find(net::HOST_PORT_SEPARATOR::CHAR));
  std::string local;
  if (in_addr broker{}; inet_pton(AF_INET, host.c_str(), &broker) == 1) {
    local = net::get_host_ip(broker.s_addr, "");
  }
  // A topic's name with both dots and underscores may collide with another in Kafka's metrics.
  std::replace(local.begin(), local.end(), '.', 'o');
  return "corvanth_medianode_" + local + "_" + std::to_string(port);
}

}  // namespace cv::mn
