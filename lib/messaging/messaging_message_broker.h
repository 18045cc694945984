// The process's only connection to Kafka: one producer, and at most one consumer with a thread of
// its own. It moves plain bytes and knows nothing of what they mean.
//
// Invariants:
// 1. A message body is exactly zlib's stream (RFC 1950) over the plain bytes: no header, no key.
//    The receiver allows ten times the compressed size and drops what inflates further.
// 2. A consumer reads only messages published after its first assignment, whatever its group had
//    committed before; later assignments go on from the committed positions.
// 3. m_consumer belongs to the consumer thread, which creates and deletes it. The producer is safe
//    on any thread and lives until the consumer thread has been joined.
// Threads: send() on any thread but never during construction or destruction by another;
// on_message and on_timeout run on the consumer thread, and while one runs nothing is consumed.
// Failure: every failure is a log line; without a producer sends are refused, without a consumer
// the thread ends, and the rest goes on.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <librdkafka/rdkafkacpp.h>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace cv::messaging {

struct MessageBrokerSettings {
  std::string brokers;              // "host:port,host:port"
  std::string group_id;             // consumer group
  std::vector<std::string> topics;  // to subscribe to; empty: no consumer
  /// Receives each plain body; the bytes live only during the call. Consumer thread.
  std::function<void(const unsigned char* data, size_t size)> on_message;
  /// After each consume call that returned no message. Consumer thread.
  std::function<void()> on_timeout;
  uint64_t consume_timeout = 0;  // milliseconds; 0 means 1000
  /// Asked while the constructor waits for its first assignment: true ends the wait.
  std::function<bool()> interrupted;
};

class MessageBroker : public RdKafka::RebalanceCb,
                      public RdKafka::EventCb,
                      public RdKafka::DeliveryReportCb {
 public:
  /// Returns after the first partition assignment, or after 10 seconds without one; at once when
  /// there are no topics.
  explicit MessageBroker(MessageBrokerSettings settings);
  /// Waits up to 10 seconds for messages not yet delivered.
  ~MessageBroker() override;
  MessageBroker(const MessageBroker&) = delete;
  MessageBroker& operator=(const MessageBroker&) = delete;

  /// Compresses and publishes one message; blocks up to 5 seconds for its delivery, and up to 2
  /// more while the library's queue is full.
  void send(std::string topic, const unsigned char* data, size_t size);
  /// As send(), for a body that is a zlib stream already; takes a copy.
  void send_compressed(const std::string& topic, const unsigned char* body, size_t size);

  /// Both return a buffer for std::free() and replace `size` with its content's size; null after a
  /// failure, which has been logged.
  static unsigned char* compress(const unsigned char* data, size_t& size);
  static unsigned char* decompress(const unsigned char* data, size_t& size);

  /// Grows with the first assignment and with each partition of a later one that is listened to. When
  /// it has grown since a request was sent, the answer may have been published before anybody listened;
  /// the answer to one sent when all partitions have counted will be heard. Any thread.
  uint64_t assignments() const { return m_assignments.load(std::memory_order_acquire); }

  void rebalance_cb(RdKafka::KafkaConsumer* consumer, RdKafka::ErrorCode code,
                    std::vector<RdKafka::TopicPartition*>& partitions) override;
  /// Errors and throttling come on the consumer thread, log events on the library's own threads.
  void event_cb(RdKafka::Event& event) override;
  /// On the thread that is inside send() or the destructor.
  void dr_cb(RdKafka::Message& message) override;

 private:
  void start_producer();
  void stop_producer();
  void start_consumer();
  void stop_consumer();

  bool create_consumer();
  bool subscribe();
  void consumer_loop();
  void consume_one(int timeout_ms, bool& unknown_topic_seen);
  /// True when the topic turned out to exist, and so the message is done with.
  bool reload_unknown_topic(const std::string& topic);
  void handle_message(RdKafka::Message* message);
  void expect_to_hear(const std::vector<RdKafka::TopicPartition*>& partitions);
  void count_heard(const RdKafka::Message& message);
  void sync_offsets(std::vector<RdKafka::TopicPartition*>& partitions, int timeout_ms);
  bool is_topic_exist_at_broker(const std::string& topic);
  void publish(const std::string& topic, unsigned char* owned_body, size_t size);
  RdKafka::ErrorCode produce(const std::string& topic, unsigned char* body, size_t size);

  MessageBrokerSettings m_settings;
  RdKafka::Producer* m_producer = nullptr;
  RdKafka::KafkaConsumer* m_consumer = nullptr;
  // The library asks for the state of topics that it holds handles of: without them the check of
  // an unknown topic would never see it appear. Consumer thread.
  std::vector<std::unique_ptr<RdKafka::Topic>> m_topics;
  // Assigned without an offset and not heard from yet. Consumer thread.
  std::set<std::pair<std::string, int32_t>> m_silent_partitions;
  std::thread m_thread;
  std::atomic<bool> m_running{false};
  std::promise<void> m_consumer_ready;
  std::atomic<bool> m_first_assignment{true};
  std::atomic<uint64_t> m_assignments{0};
};

}  // namespace cv::messaging
