// A Kafka cluster of one broker inside the test process, on a loopback port of the kernel's choice.
//
// Every topic has one partition and exists from the start: the cluster would make an unknown one
// with four. The consumer under test needs three seconds to its first assignment, and a message
// broker's destructor waits five for this cluster's threads: tests with it are kept few.
// Owner: the test; it must outlive the clients under test. One thread.
#pragma once

#include <librdkafka/rdkafka.h>
#include <librdkafka/rdkafka_mock.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cv::test {

/// A zlib stream of these bytes, as the broker under test makes it.
std::string compressed(const std::string& plain);
/// What the broker under test makes of a body: its content, or nothing when it refuses it.
std::optional<std::string> decompressed(const std::string& body);

using KafkaHandle = std::unique_ptr<rd_kafka_t, decltype(&rd_kafka_destroy)>;

/// The other side of what is under test, on any cluster.
class KafkaClient {
 public:
  explicit KafkaClient(const std::string& brokers);
  virtual ~KafkaClient() = default;
  KafkaClient(const KafkaClient&) = delete;
  KafkaClient& operator=(const KafkaClient&) = delete;

  /// "127.0.0.1:port"
  const std::string& brokers() const { return m_brokers; }

  /// Publishes a raw body; returns when the cluster has it.
  void produce(const std::string& topic, const std::string& body);
  /// The raw bodies of a topic from its beginning: `count` of them, fewer when they do not come.
  std::vector<std::string> consume(const std::string& topic, std::size_t count);

 private:
  std::string m_brokers;
  KafkaHandle m_producer;
};

/// What a client of the cluster needs before it can be made.
struct MockCluster {
  explicit MockCluster(const std::vector<std::string>& topics);
  ~MockCluster();

  KafkaHandle host;
  rd_kafka_mock_cluster_t* cluster;
};

class MockKafka : private MockCluster, public KafkaClient {
 public:
  explicit MockKafka(const std::vector<std::string>& topics);

  /// From now on the cluster answers for `topic` with `error`; RD_KAFKA_RESP_ERR_NO_ERROR ends that.
  void set_topic_error(const std::string& topic, rd_kafka_resp_err_t error);
  /// The next requests with this key of the Kafka protocol are answered with these errors.
  void push_errors(int16_t api_key, const std::vector<rd_kafka_resp_err_t>& errors);

  /// From now on the cluster takes connections and requests and answers none, like a broker that is
  /// stopped in its tracks.
  void hang();
  /// From now on the cluster has no connections and refuses new ones, like a broker that died.
  void refuse();
};

}  // namespace cv::test
