#include "tools/configd/topic_creation.h"

#include <array>
#include <librdkafka/rdkafka.h>
#include <librdkafka/rdkafkacpp.h>
#include <memory>

#include "log/log.h"

namespace cv::tools {

namespace {

constexpr int timeout_ms = 10000;
constexpr int partitions = 1;
constexpr int cluster_default = -1;

template <typename T, void (*Destroy)(T*)>
struct Destroyer {
  void operator()(T* object) const { Destroy(object); }
};
template <typename T, void (*Destroy)(T*)>
using Owner = std::unique_ptr<T, Destroyer<T, Destroy>>;

using Client = Owner<rd_kafka_t, rd_kafka_destroy>;
using Replies = Owner<rd_kafka_queue_t, rd_kafka_queue_destroy>;
using Options = Owner<rd_kafka_AdminOptions_t, rd_kafka_AdminOptions_destroy>;
using Topic = Owner<rd_kafka_NewTopic_t, rd_kafka_NewTopic_destroy>;
using Reply = Owner<rd_kafka_event_t, rd_kafka_event_destroy>;

void warn(const std::string& what, const char* reason) {
  CV_LOG(WarningMessage) << "CONFIGD: " << what << " cannot be made: " << reason;
}

Client make_client(const std::string& brokers, const messaging::ClientProperties& properties) {
  const std::unique_ptr<RdKafka::Conf> prepared(RdKafka::Conf::create(RdKafka::Conf::CONF_GLOBAL));
  std::string refusal;
  prepared->set("bootstrap.servers", brokers, refusal);
  if (!messaging::set_client_properties(*prepared, properties)) return nullptr;
  std::array<char, 512> error{};
  rd_kafka_conf_t* conf = rd_kafka_conf_dup(prepared->c_ptr_global());
  // The client takes the settings over only when it comes into being.
  Client client(rd_kafka_new(RD_KAFKA_PRODUCER, conf, error.data(), error.size()));
  if (client) return client;
  rd_kafka_conf_destroy(conf);
  warn("topics", messaging::without_secrets(error.data(), properties).c_str());
  return nullptr;
}

void warn_of_failures(rd_kafka_event_t* reply) {
  if (reply == nullptr) return warn("topics", "no answer");
  if (rd_kafka_event_error(reply) != RD_KAFKA_RESP_ERR_NO_ERROR) {
    return warn("topics", rd_kafka_event_error_string(reply));
  }
  std::size_t count = 0;
  const rd_kafka_topic_result_t** results =
      rd_kafka_CreateTopics_result_topics(rd_kafka_event_CreateTopics_result(reply), &count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto code = rd_kafka_topic_result_error(results[i]);
    if (code == RD_KAFKA_RESP_ERR_NO_ERROR || code == RD_KAFKA_RESP_ERR_TOPIC_ALREADY_EXISTS) {
      continue;
    }
    warn(std::string("topic [") + rd_kafka_topic_result_name(results[i]) + "]",
         rd_kafka_err2str(code));
  }
}

}  // namespace

void create_topics(const std::string& brokers, const messaging::ClientProperties& properties,
                   const std::vector<std::string>& topics) {
  const Client client = make_client(brokers, properties);
  if (!client) return;
  std::array<char, 512> error{};
  std::vector<Topic> owned;
  std::vector<rd_kafka_NewTopic_t*> wanted;
  for (const std::string& topic : topics) {
    owned.emplace_back(rd_kafka_NewTopic_new(topic.c_str(), partitions, cluster_default,
                                             error.data(), error.size()));
    if (!owned.back()) return warn("topic [" + topic + "]", error.data());
    wanted.push_back(owned.back().get());
  }
  const Options options(rd_kafka_AdminOptions_new(client.get(), RD_KAFKA_ADMIN_OP_CREATETOPICS));
  rd_kafka_AdminOptions_set_request_timeout(options.get(), timeout_ms, error.data(), error.size());
  const Replies replies(rd_kafka_queue_new(client.get()));
  rd_kafka_CreateTopics(client.get(), wanted.data(), wanted.size(), options.get(), replies.get());
  const Reply reply(rd_kafka_queue_poll(replies.get(), timeout_ms));
  warn_of_failures(reply.get());
}

}  // namespace cv::tools
