// A whole node under test: the real executable, an embedded Kafka cluster that the test answers on as
// the configuration manager, a report receiver, and a socket that sends media to the node.
//
// Everything is on 127.0.0.1 and on ports of its own, so that tests run side by side; nothing
// outlives the test.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "e2e/running_node.h"
#include "support/eventually.h"
#include "support/mock_kafka.h"

namespace cv::test {

/// The samples of a recorded English prompt.
std::vector<int16_t> prompt(const std::string& name);

class NodeFixture : public testing::Test, protected RunningNode {
 protected:
  /// `kafka_settings`: further lines of the Kafka settings.
  explicit NodeFixture(const std::string& kafka_settings = "");

  /// The two requests that a started node sends first.
  void wait_for_first_requests();
  /// start_node() and a configuration: rule 1 looks for `prompts` (sample ids from 101 in their order)
  /// at threshold 4.5. Returns when the media port is open.
  void start_ready_node(const std::vector<std::string>& prompts, const std::string& settings = "");

  void send_to_node(const std::string& json);
  void broadcast(const std::string& json);
  /// The first `count` different requests of the node, as JSON texts: a node that hears a topic of a real
  /// broker late asks again.
  std::vector<std::string> requests(size_t count);

  /// `ids`: sample id to prompt name; every sample belongs to rule 1.
  std::string sample_configuration(uint64_t version,
                                   const std::map<uint32_t, std::string>& ids) const;
  std::string sample_event(uint32_t id, const std::string& prompt_name) const;

  std::string syslog() const { return m_sandbox.syslog(); }
  bool syslog_has(const std::string& text);
  /// How often `text` stands in the syslog lines.
  size_t syslog_count(const std::string& text) const;

  /// On the test's own cluster only.
  MockKafka& mock() { return dynamic_cast<MockKafka&>(*m_kafka); }

 private:
  const std::string m_request_topic;
  const std::string m_broadcast_topic;
  std::unique_ptr<KafkaClient> m_kafka;
};

}  // namespace cv::test
