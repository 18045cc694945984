// librdkafka's in-process Kafka cluster, in a process of its own: a demo or a small test site needs no
// Kafka server. It keeps messages in memory only, 5 MB a partition.
//
// A child process and not this one, because the message broker waits at its end for all of
// librdkafka's threads, and the cluster's would still be running.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace cv::tools {

class EmbeddedBroker {
 public:
  /// Starts the cluster with these topics, one partition each; a topic that is not among them comes
  /// into being with four when it is first used. The process must have one thread only.
  /// Empty, with the reason in `error`, when it does not start.
  static std::optional<EmbeddedBroker> start(const std::vector<std::string>& topics,
                                             std::string& error);

  EmbeddedBroker(EmbeddedBroker&& other) noexcept;
  EmbeddedBroker& operator=(EmbeddedBroker&&) = delete;
  /// Ends the cluster and its process; what it held is gone. It ends too when this process dies.
  ~EmbeddedBroker();

  /// "127.0.0.1:PORT"
  const std::string& address() const { return m_address; }

 private:
  EmbeddedBroker(pid_t child, int lifeline, std::string address)
      : m_child(child), m_lifeline(lifeline), m_address(std::move(address)) {}

  pid_t m_child;
  int m_lifeline;  // the child reads from its other end until this one is closed
  std::string m_address;
};

}  // namespace cv::tools
