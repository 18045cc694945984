#include "medianode/node_identity.h"

#include <algorithm>
#include <arpa/inet.h>

#include "log/log.h"
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
  std::string identity = "corvanth_medianode_" + local + "_" + std::to_string(port);
  if (local.empty()) {
    CV_LOG(WarningMessage)
        << "SERVICE: [kafka_broker] begins with no IPv4 address that this machine "
           "reaches: of all nodes with the identity ["
        << identity << "] only one hears the configuration manager";
  }
  return identity;
}

}  // namespace cv::mn
