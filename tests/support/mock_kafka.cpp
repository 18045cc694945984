#include "support/mock_kafka.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

#include "messaging/messaging_message_broker.h"

namespace cv::test {

namespace {

constexpr int delivery_ms = 10000;
constexpr int32_t only_broker = 1;
constexpr auto consume_limit = std::chrono::seconds(60);

/// Runs MessageBroker::compress or ::decompress over a text.
template <typename Transform>
std::optional<std::string> transformed(Transform transform, const std::string& body) {
  std::size_t size = body.size();
  const std::unique_ptr<unsigned char, decltype(&std::free)> result(
      transform(reinterpret_cast<const unsigned char*>(body.data()), size), &std::free);
  if (result == nullptr) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(result.get()), size);
}

KafkaHandle make_client(rd_kafka_type_t type, const std::string& brokers) {
  char error[256] = "";
  rd_kafka_conf_t* conf = rd_kafka_conf_new();
  rd_kafka_conf_set_log_cb(conf, nullptr);
  rd_kafka_conf_set(conf, "group.id", "mock_kafka", error, sizeof error);
  rd_kafka_conf_set(conf, "fetch.wait.max.ms", "50", error, sizeof error);
  if (!brokers.empty()) {
    rd_kafka_conf_set(conf, "bootstrap.servers", brokers.c_str(), error, sizeof error);
  }
  KafkaHandle handle(rd_kafka_new(type, conf, error, sizeof error), &rd_kafka_destroy);
  EXPECT_NE(handle, nullptr) << error;
  return handle;
}

}  // namespace

std::string compressed(const std::string& plain) {
  return transformed(&messaging::MessageBroker::compress, plain).value();
}

std::optional<std::string> decompressed(const std::string& body) {
  return transformed(&messaging::MessageBroker::decompress, body);
}

KafkaClient::KafkaClient(const std::string& brokers)
    : m_brokers(brokers), m_producer(make_client(RD_KAFKA_PRODUCER, brokers)) {}

MockCluster::MockCluster(const std::vector<std::string>& topics)
    : host(make_client(RD_KAFKA_PRODUCER, "")), cluster(rd_kafka_mock_cluster_new(host.get(), 1)) {
  for (const std::string& topic : topics) {
    EXPECT_EQ(rd_kafka_mock_topic_create(cluster, topic.c_str(), 1, 1), RD_KAFKA_RESP_ERR_NO_ERROR);
  }
}

MockCluster::~MockCluster() { rd_kafka_mock_cluster_destroy(cluster); }

MockKafka::MockKafka(const std::vector<std::string>& topics)
    : MockCluster(topics), KafkaClient(rd_kafka_mock_cluster_bootstraps(cluster)) {}

void KafkaClient::produce(const std::string& topic, const std::string& body) {
  EXPECT_EQ(rd_kafka_producev(m_producer.get(), RD_KAFKA_V_TOPIC(topic.c_str()),
                              RD_KAFKA_V_MSGFLAGS(RD_KAFKA_MSG_F_COPY),
                              RD_KAFKA_V_VALUE(const_cast<char*>(body.data()), body.size()),
                              RD_KAFKA_V_END),
            RD_KAFKA_RESP_ERR_NO_ERROR);
  EXPECT_EQ(rd_kafka_flush(m_producer.get(), delivery_ms), RD_KAFKA_RESP_ERR_NO_ERROR);
}

std::vector<std::string> KafkaClient::consume(const std::string& topic, std::size_t count) {
  const KafkaHandle consumer = make_client(RD_KAFKA_CONSUMER, m_brokers);
  rd_kafka_poll_set_consumer(consumer.get());
  rd_kafka_topic_partition_list_t* partitions = rd_kafka_topic_partition_list_new(1);
  rd_kafka_topic_partition_list_add(partitions, topic.c_str(), 0)->offset =
      RD_KAFKA_OFFSET_BEGINNING;
  rd_kafka_assign(consumer.get(), partitions);
  rd_kafka_topic_partition_list_destroy(partitions);

  std::vector<std::string> bodies;
  const auto deadline = std::chrono::steady_clock::now() + consume_limit;
  while (bodies.size() < count && std::chrono::steady_clock::now() < deadline) {
    rd_kafka_message_t* message = rd_kafka_consumer_poll(consumer.get(), 100);
    if (message == nullptr) continue;
    if (message->err == RD_KAFKA_RESP_ERR_NO_ERROR) {
      bodies.emplace_back(static_cast<const char*>(message->payload), message->len);
    }
    rd_kafka_message_destroy(message);
  }
  rd_kafka_consumer_close(consumer.get());
  return bodies;
}

void MockKafka::set_topic_error(const std::string& topic, rd_kafka_resp_err_t error) {
  rd_kafka_mock_topic_set_error(cluster, topic.c_str(), error);
}

void MockKafka::hang() {
  constexpr int answer_after_ms = 3600 * 1000;
  rd_kafka_mock_broker_set_rtt(cluster, only_broker, answer_after_ms);
}

void MockKafka::refuse() { rd_kafka_mock_broker_set_down(cluster, only_broker); }

void MockKafka::push_errors(int16_t api_key, const std::vector<rd_kafka_resp_err_t>& errors) {
  rd_kafka_mock_push_request_errors_array(cluster, api_key, errors.size(), errors.data());
}

}  // namespace cv::test
