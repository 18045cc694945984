#include "messaging/messaging_message_broker.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <utility>
#include <zlib.h>

#include "core/thread.h"
#include "log/log.h"
#include "messaging/messaging_attempt.h"
#include "messaging/messaging_bracketed.h"
#include "messaging/messaging_compression.h"

namespace cv::messaging {

namespace {

using std::chrono::milliseconds;
using Buffer = std::unique_ptr<unsigned char, decltype(&std::free)>;

constexpr milliseconds startup_timeout{10000};
constexpr milliseconds startup_slice{50};
constexpr milliseconds delivery_timeout{5000};
constexpr int delivery_slice_ms = 100;
constexpr int queue_full_poll_ms = 1000;
constexpr milliseconds shutdown_flush_timeout{10000};
constexpr milliseconds consumer_close_timeout{1500};
constexpr int consumer_close_slice_ms = 50;
// Enough for a consumer that has nothing to do but close.
constexpr milliseconds consumer_stop_timeout{2000};
constexpr int library_destroyed_ms = 5000;
constexpr uint64_t default_consume_timeout_ms = 1000;
constexpr milliseconds most_between_looks{10};
constexpr milliseconds library_wake_interval{1000};
constexpr int produce_attempts = 3;
constexpr int topic_checks = 5;
constexpr milliseconds topic_check_interval{100};
constexpr milliseconds out_of_memory_pause{100};

}  // namespace

MessageBroker::MessageBroker(MessageBrokerSettings settings) : m_settings(std::move(settings)) {
  start_consumer();
  start_producer();
}

// A consumer thread that is held up, by brokers that do not answer or by a handler, ends beside the
// producer's flush, and the flush has what is left of its time: one after the other would add up. A
// handler may send all the while.
MessageBroker::~MessageBroker() {
  const auto deadline = std::chrono::steady_clock::now() + shutdown_flush_timeout;
  stop_consumer();
  flush_producer(deadline);
  if (m_thread.joinable()) m_thread.join();
  say_lost();
  delete m_producer.load();
  RdKafka::wait_destroyed(library_destroyed_ms);
}

// The producer has no event callback on purpose: the consumer reports the same outage. The price is that
// the library writes the producer's own notices to standard error in its own layout.
void MessageBroker::start_producer() {
  const auto conf = producer_conf(m_settings.brokers, m_settings.properties, *this);
  if (conf == nullptr) return;
  std::string error;
  m_producer = RdKafka::Producer::create(conf.get(), error);
  if (m_producer == nullptr) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to create producer: "
                         << without_secrets(error, m_settings.properties);
  }
}

void MessageBroker::flush_producer(std::chrono::steady_clock::time_point deadline) {
  if (m_producer == nullptr) return;
  const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
  m_producer.load()->flush(std::max(0, static_cast<int>(left.count())));  // less than 0: for ever
}

/// Of what was queued, by handlers of the consumer thread until its end, too.
void MessageBroker::say_lost() {
  if (m_producer == nullptr) return;
  m_producer.load()->poll(0);
  if (const int count = m_producer.load()->outq_len(); count > 0) {
    CV_LOG(WarningMessage) << "MESSAGE_BROKER: losing data as (" << count
                           << ") message(s) were not delivered";
  }
}

void MessageBroker::send(const std::string& topic, const unsigned char* data, size_t size) {
  if (unsigned char* body = compress(data, size)) publish(topic, body, size);
}

void MessageBroker::send_compressed(const std::string& topic, const unsigned char* body,
                                    size_t size) {
  auto* copy = static_cast<unsigned char*>(std::malloc(size));
  if (copy == nullptr) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to send message to [" << topic
                         << "]; out of memory";
    return;
  }
  std::copy(body, body + size, copy);
  publish(topic, copy, size);
}

void MessageBroker::publish(const std::string& topic, unsigned char* owned_body, size_t size) {
  Buffer body(owned_body, &std::free);
  if (m_producer == nullptr) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to send message to [" << topic
                         << "]; there is no producer";
    return;
  }
  for (int attempt = 0; attempt < produce_attempts; ++attempt) {
    const RdKafka::ErrorCode code = produce(topic, body.get(), size);
    if (code == RdKafka::ERR_NO_ERROR) {
      // An accepted body is the library's: it frees it after delivery.
      (void)body.release();
      const RdKafka::ErrorCode flushed = wait_for_delivery();
      if (flushed != RdKafka::ERR_NO_ERROR && !interrupted()) {
        CV_LOG(WarningMessage) << "MESSAGE_BROKER: message may not be sent to [" << topic
                               << "]; error (" << flushed << "): " << RdKafka::err2str(flushed);
      }
      return;
    }
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to send message to [" << topic << "]; error ("
                         << code << "): " << RdKafka::err2str(code);
    if (code != RdKafka::ERR__QUEUE_FULL || interrupted()) return;
    if (attempt + 1 < produce_attempts) m_producer.load()->poll(queue_full_poll_ms);
  }
}

// In slices, so that a stop need not wait for it: the message stays queued, and the destructor gives
// it its time.
RdKafka::ErrorCode MessageBroker::wait_for_delivery() {
  const auto deadline = std::chrono::steady_clock::now() + delivery_timeout;
  RdKafka::ErrorCode code;
  do {
    code = m_producer.load()->flush(delivery_slice_ms);
  } while (code == RdKafka::ERR__TIMED_OUT && !interrupted() &&
           std::chrono::steady_clock::now() < deadline);
  return code;
}

RdKafka::ErrorCode MessageBroker::produce(const std::string& topic, unsigned char* body,
                                          size_t size) {
  return m_producer.load()->produce(topic, RdKafka::Topic::PARTITION_UA,
                                    RdKafka::Producer::RK_MSG_FREE, body, size, nullptr, 0, 0,
                                    nullptr);
}

void MessageBroker::dr_cb(RdKafka::Message& message) {
  attempt([&message] { report_delivery(message); });
}

void MessageBroker::report_delivery(const RdKafka::Message& message) {
  if (message.err() == RdKafka::ERR_NO_ERROR) {
    CV_LOG(InfoMessage) << "MESSAGE_BROKER: message delivered to " << message.topic_name() << '['
                        << message.partition() << "] at offset (" << message.offset() << ')';
  } else {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: message delivery failed to " << message.topic_name()
                         << '[' << message.partition() << "], error: " << message.errstr();
  }
}

unsigned char* MessageBroker::compress(const unsigned char* data, size_t& size) {
  uLongf length = ::compressBound(size);
  Buffer body(static_cast<unsigned char*>(std::calloc(1, length)), &std::free);
  const int result = body == nullptr ? Z_MEM_ERROR : ::compress(body.get(), &length, data, size);
  if (result != Z_OK) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: message compressing error (" << result << ')';
    return nullptr;
  }
  size = length;
  return body.release();
}

unsigned char* MessageBroker::decompress(const unsigned char* data, size_t& size) {
  uLongf length = max_inflation * size;
  // One byte at least: an empty body is zlib's error to report, not the allocator's.
  Buffer body(static_cast<unsigned char*>(std::calloc(1, length + 1)), &std::free);
  const int result = body == nullptr ? Z_MEM_ERROR : ::uncompress(body.get(), &length, data, size);
  if (result != Z_OK) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: message decompressing error (" << result << ')';
    return nullptr;
  }
  size = length;
  return body.release();
}

void MessageBroker::start_consumer() {
  if (m_settings.topics.empty()) return;
  const auto deadline = std::chrono::steady_clock::now() + startup_timeout;
  const std::future<void> ready = m_assignment.first_assignment();
  m_running = true;
  m_consumer_stopped = m_consumer_done.get_future();
  {
    const BlockedSignals blocked;
    m_thread = std::thread(&MessageBroker::consumer_loop, this);
  }
  while (ready.wait_for(startup_slice) != std::future_status::ready) {
    if (interrupted()) return;
    if (!m_running || std::chrono::steady_clock::now() >= deadline) {
      CV_LOG(ErrorMessage) << "MESSAGE_BROKER: consumer startup failed";
      return;
    }
  }
  const auto print = [](std::ostream& out, const std::string& topic) { out << topic; };
  CV_LOG(SystemMessage) << "MESSAGE_BROKER: subscribed for " << bracketed(m_settings.topics, print)
                        << " topic(s)";
}

void MessageBroker::stop_consumer() {
  if (m_settings.topics.empty()) return;
  m_running = false;
  if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id()) {
    m_consumer_stopped.wait_for(consumer_stop_timeout);
  } else {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: trying to stop consumer thread from itself! Possible "
                            "memory leak!!!";
  }
}

bool MessageBroker::create_consumer() {
  const auto conf =
      consumer_conf(m_settings.brokers, m_settings.group_id, m_settings.properties, *this, *this);
  if (conf == nullptr) return false;
  std::string error;
  m_consumer = RdKafka::KafkaConsumer::create(conf.get(), error);
  if (m_consumer == nullptr) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to create consumer: "
                         << without_secrets(error, m_settings.properties);
    return false;
  }
  for (const std::string& name : m_settings.topics) {
    // Null on failure, which leaves only the refresh to find a new topic.
    m_topics.emplace_back(RdKafka::Topic::create(m_consumer, name, nullptr, error));
  }
  // Without its topics the consumer still reports errors and time-outs.
  const RdKafka::ErrorCode code = m_consumer->subscribe(m_settings.topics);
  if (code != RdKafka::ERR_NO_ERROR) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: consumer topics subscribe failed, error (" << code
                         << "): " << RdKafka::err2str(code);
  }
  return true;
}

void MessageBroker::consumer_loop() {
  const long id = kernel_thread_id();
  name_this_thread("kafka consumer");
  CV_LOG(SystemMessage) << "MESSAGE_BROKER: messages listening thread [" << id << "] started";
  if (create_consumer()) {
    const milliseconds timeout(m_settings.consume_timeout == 0 ? default_consume_timeout_ms
                                                               : m_settings.consume_timeout);
    bool unknown_topic_seen = false;
    while (m_running) {
      if (!attempt([&] { consume_one(timeout, unknown_topic_seen); })) {
        std::this_thread::sleep_for(out_of_memory_pause);
      }
    }
    close_consumer();
  } else {
    // Tells the constructor that there is nothing left to wait for.
    m_running = false;
  }
  CV_LOG(SystemMessage) << "MESSAGE_BROKER: messages listening thread [" << id << "] stopped";
  m_consumer_done.set_value();
}

// The library's close commits offsets and leaves the group, so that a successor gets the topics at
// once. But begun with brokers that do not answer it waits for them a minute; without it the deletion
// waits only for a commit already under way, and the group learns by session.timeout.ms.
void MessageBroker::close_consumer() {
  if (group_answers()) {
    const auto deadline = std::chrono::steady_clock::now() + consumer_close_timeout;
    // The last rebalance comes by this queue; its callback runs inside consume().
    const std::unique_ptr<RdKafka::Queue> events(RdKafka::Queue::create(m_consumer));
    const std::unique_ptr<RdKafka::Error> refused(m_consumer->close(events.get()));
    while (refused == nullptr && !m_consumer->closed() &&
           std::chrono::steady_clock::now() < deadline) {
      const std::unique_ptr<RdKafka::Message> ignored(events->consume(consumer_close_slice_ms));
    }
  }
  m_topics.clear();
  delete m_consumer;
  m_consumer = nullptr;
}

bool MessageBroker::group_answers() {
  std::vector<RdKafka::TopicPartition*> any{
      RdKafka::TopicPartition::create(m_settings.topics.front(), 0)};
  const RdKafka::ErrorCode code = m_consumer->committed(any, broker_query_ms);
  RdKafka::TopicPartition::destroy(any);
  return code == RdKafka::ERR_NO_ERROR;
}

/// ERR__TIMED_OUT when none came. The library waits for times of the wall clock: with a clock that is set
/// back a day meanwhile it would wait a day. So it never waits here, and its main thread, which sends the
/// heartbeats, is asked something now and then, which ends its wait. Then the producer's events are taken,
/// too: a node may send nothing for months, and they would queue up without bound.
std::unique_ptr<RdKafka::Message> MessageBroker::next_message(milliseconds timeout) {
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + timeout;
  for (auto now = steady_clock::now();; now = steady_clock::now()) {
    if (now >= m_wake_library_at) {
      (void)m_consumer->memberid();
      if (RdKafka::Producer* producer = m_producer) producer->poll(0);
      m_wake_library_at = now + library_wake_interval;
    }
    std::unique_ptr<RdKafka::Message> message(m_consumer->consume(0));
    if (message->err() != RdKafka::ERR__TIMED_OUT || now >= deadline || !m_running) return message;
    std::this_thread::sleep_for(std::min(timeout, most_between_looks));
  }
}

void MessageBroker::consume_one(milliseconds timeout, bool& unknown_topic_seen) {
  const auto message = next_message(timeout);
  m_assignment.on_consumed(*message);
  if (message->err() == RdKafka::ERR_UNKNOWN_TOPIC_OR_PART && !unknown_topic_seen) {
    unknown_topic_seen = true;
    if (reload_unknown_topic(message->topic_name())) return;
  }
  handle_message(message.get());
}

bool MessageBroker::reload_unknown_topic(const std::string& topic) {
  CV_LOG(WarningMessage) << "MESSAGE_BROKER: topic [" << topic
                         << "] is unknown, let's check the one has been already created at broker";
  bool exists = false;
  for (int check = 0; check < topic_checks && !exists && m_running; ++check) {
    std::this_thread::sleep_for(topic_check_interval);
    exists = is_topic_exist_at_broker(topic);
  }
  if (!exists) return false;

  CV_LOG(InfoMessage) << "MESSAGE_BROKER: topic [" << topic
                      << "] exist at broker, let's resubscribe to reload the topic";
  m_consumer->unsubscribe();
  const RdKafka::ErrorCode code = m_consumer->subscribe(m_settings.topics);
  if (code == RdKafka::ERR_NO_ERROR) {
    CV_LOG(InfoMessage) << "MESSAGE_BROKER: topics resubscribed successfully";
  } else {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to resubscribe topics, error (" << code
                         << "): " << RdKafka::err2str(code);
    m_running = false;
  }
  return true;
}

void MessageBroker::handle_message(RdKafka::Message* message) {
  switch (message->err()) {
    case RdKafka::ERR_NO_ERROR:
      if (m_settings.on_message) {
        size_t size = message->len();
        const Buffer plain(decompress(static_cast<const unsigned char*>(message->payload()), size),
                           &std::free);
        if (plain != nullptr) m_settings.on_message(plain.get(), size);
      }
      break;
    case RdKafka::ERR__TIMED_OUT:
      if (m_settings.on_timeout) m_settings.on_timeout();
      break;
    case RdKafka::ERR__PARTITION_EOF:
      if (log::Logger::m_instance.level >= log::Level::TRACE) {
        CV_LOG(TraceMessage) << "MESSAGE_BROKER: EOF reached for partition ["
                             << message->partition() << ']';
      }
      break;
    default:
      CV_LOG(ErrorMessage) << "MESSAGE_BROKER: message receiving error (" << message->err()
                           << "): \"" << message->errstr() << '"';
  }
}

void MessageBroker::rebalance_cb(RdKafka::KafkaConsumer* consumer, RdKafka::ErrorCode code,
                                 std::vector<RdKafka::TopicPartition*>& partitions) {
  m_assignment.on_rebalance(*consumer, code, partitions);
}

bool MessageBroker::is_topic_exist_at_broker(const std::string& topic) {
  RdKafka::Metadata* received = nullptr;
  const RdKafka::ErrorCode code = m_consumer->metadata(false, nullptr, &received, broker_query_ms);
  const std::unique_ptr<RdKafka::Metadata> metadata(received);
  if (code != RdKafka::ERR_NO_ERROR) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to receive metadata from broker: error ("
                         << code << "): \"" << RdKafka::err2str(code) << '"';
    return false;
  }
  if (metadata == nullptr || metadata->topics() == nullptr) {
    CV_LOG(ErrorMessage) << "MESSAGE_BROKER: metadata or metadata topics do not exist";
    return false;
  }
  // A topic that was asked for is listed in any case, with this error when the cluster has none.
  for (const RdKafka::TopicMetadata* known : *metadata->topics()) {
    if (known->topic() == topic) return known->err() != RdKafka::ERR_UNKNOWN_TOPIC_OR_PART;
  }
  return false;
}

void MessageBroker::event_cb(RdKafka::Event& event) {
  attempt([&] { report_event(event); });
}

void MessageBroker::report_event(const RdKafka::Event& event) const {
  const std::string text = without_secrets(event.str(), m_settings.properties);
  switch (event.type()) {
    case RdKafka::Event::EVENT_ERROR:
      CV_LOG(ErrorMessage) << "MESSAGE_BROKER: " << (event.fatal() ? "FATAL" : "") << " error ("
                           << RdKafka::err2str(event.err()) << "): " << text;
      break;
    case RdKafka::Event::EVENT_STATS:
      CV_LOG(ErrorMessage) << "MESSAGE_BROKER: STAT: " << text;
      break;
    case RdKafka::Event::EVENT_LOG:
      CV_LOG(InfoMessage) << "MESSAGE_BROKER: LOG-" << event.severity() << '-' << event.fac()
                          << ": " << text;
      break;
    case RdKafka::Event::EVENT_THROTTLE:
      CV_LOG(InfoMessage) << "MESSAGE_BROKER: THROTTLED: " << event.throttle_time() << "ms by "
                          << event.broker_name() << "(id: " << event.broker_id() << ')';
      break;
    default:
      CV_LOG(InfoMessage) << "MESSAGE_BROKER: event (" << event.type() << ") \""
                          << RdKafka::err2str(event.err()) << "\": " << text;
  }
}

}  // namespace cv::messaging
