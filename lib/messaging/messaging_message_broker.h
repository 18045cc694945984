// The process's only connection to Kafka: one producer, and at most one consumer with a thread of
// its own. It moves plain bytes and knows nothing of what they mean.
//
// Invariants:
// 1. A message body is exactly zlib's stream (RFC 1950) over the plain bytes: no header, no key.
//    The receiver allows ten times the compressed size and drops what inflates further.
// 2. m_consumer belongs to the consumer thread, which creates and deletes it. The producer is safe
//    on any thread and lives until the consumer thread has been joined.
// Threads: send() on any thread but never during construction or destruction by another;
// on_message and on_timeout run on the consumer thread, and while one runs nothing is consumed.
// Failure: every failure is a log line; without a producer sends are refused, without a consumer
// the thread ends, and the rest goes on.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <librdkafka/rdkafkacpp.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "messaging/messaging_client_properties.h"
#include "messaging/messaging_partition_assignment.h"

namespace cv::messaging {

struct MessageBrokerSettings {
  std::string brokers;              // "host:port,host:port"
  std::string group_id;             // consumer group
  ClientProperties properties;      // the operator's, for producer and consumer
  std::vector<std::string> topics;  // to subscribe to; empty: no consumer
  /// Receives each plain body; the bytes live only during the call. Consumer thread.
  std::function<void(const unsigned char* data, size_t size)> on_message;
  /// After each `consume_timeout` without a message. Consumer thread.
  std::function<void()> on_timeout;
  uint64_t consume_timeout = 0;  // milliseconds; 0 means 1000
  /// True ends every wait for the brokers but the destructor's. Asked on the thread that waits: the
  /// constructing one and those that send.
  std::function<bool()> interrupted;
};

class MessageBroker : public RdKafka::RebalanceCb,
                      public RdKafka::EventCb,
                      public RdKafka::DeliveryReportCb {
 public:
  /// Returns after the first partition assignment, or after 10 seconds without one; at once when
  /// there are no topics.
  explicit MessageBroker(MessageBrokerSettings settings);
  /// Gives messages not yet delivered up to 10 seconds; the consumer thread ends meanwhile. With
  /// brokers that answer nothing an offset commit under way can take it 9.
  ~MessageBroker() override;
  MessageBroker(const MessageBroker&) = delete;
  MessageBroker& operator=(const MessageBroker&) = delete;

  /// Whether there is a producer and, when there are topics, a consumer at work. Fixed for good, but that
  /// a consumer may still end.
  bool usable() const { return m_producer != nullptr && (m_settings.topics.empty() || m_running); }

  /// Compresses and publishes one message; blocks up to 5 seconds for its delivery, and up to 2
  /// more while the library's queue is full.
  void send(const std::string& topic, const unsigned char* data, size_t size);
  /// As send(), for a body that is a zlib stream already; takes a copy.
  void send_compressed(const std::string& topic, const unsigned char* body, size_t size);

  /// Both return a buffer for std::free() and replace `size` with its content's size; null after a
  /// failure, which has been logged.
  static unsigned char* compress(const unsigned char* data, size_t& size);
  static unsigned char* decompress(const unsigned char* data, size_t& size);

  /// PartitionAssignment::assignments(). Any thread.
  uint64_t assignments() const { return m_assignment.assignments(); }

  void rebalance_cb(RdKafka::KafkaConsumer* consumer, RdKafka::ErrorCode code,
                    std::vector<RdKafka::TopicPartition*>& partitions) override;
  /// Errors and throttling come on the consumer thread, log events on the library's own threads.
  void event_cb(RdKafka::Event& event) override;
  /// On a thread that is inside send() or the destructor, or on the consumer thread.
  void dr_cb(RdKafka::Message& message) override;

 private:
  static void report_delivery(const RdKafka::Message& message);
  void report_event(const RdKafka::Event& event) const;
  void start_producer();
  void flush_producer(std::chrono::steady_clock::time_point deadline);
  void say_lost();
  void start_consumer();
  void stop_consumer();

  bool create_consumer();
  void close_consumer();
  bool group_answers();
  void consumer_loop();
  std::unique_ptr<RdKafka::Message> next_message(std::chrono::milliseconds timeout);
  void consume_one(std::chrono::milliseconds timeout, bool& unknown_topic_seen);
  /// True when the topic turned out to exist, and so the message is done with.
  bool reload_unknown_topic(const std::string& topic);
  void handle_message(RdKafka::Message* message);
  bool is_topic_exist_at_broker(const std::string& topic);
  void publish(const std::string& topic, unsigned char* owned_body, size_t size);
  RdKafka::ErrorCode wait_for_delivery();
  bool interrupted() const { return m_settings.interrupted && m_settings.interrupted(); }
  RdKafka::ErrorCode produce(const std::string& topic, unsigned char* body, size_t size);

  MessageBrokerSettings m_settings;
  std::atomic<RdKafka::Producer*> m_producer{nullptr};
  RdKafka::KafkaConsumer* m_consumer = nullptr;
  // The library asks for the state of topics that it holds handles of: without them the check of
  // an unknown topic would never see it appear. Consumer thread.
  std::vector<std::unique_ptr<RdKafka::Topic>> m_topics;
  std::chrono::steady_clock::time_point m_wake_library_at;  // consumer thread
  std::thread m_thread;
  std::promise<void> m_consumer_done;
  std::future<void> m_consumer_stopped;
  std::atomic<bool> m_running{false};
  PartitionAssignment m_assignment;
};

}  // namespace cv::messaging
