#include "messaging/messaging_message_broker.h"

#include <atomic>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>

#include "support/eventually.h"
#include "support/log_capture.h"
#include "support/mock_kafka.h"

namespace {

using cv::log::Level;
using cv::messaging::MessageBroker;
using cv::messaging::MessageBrokerSettings;
using cv::test::compressed;
using cv::test::eventually;
using cv::test::LogCapture;
using cv::test::MockKafka;
using Texts = std::vector<std::string>;

void send(MessageBroker& broker, const std::string& topic, const std::string& body) {
  broker.send(topic, reinterpret_cast<const unsigned char*>(body.data()), body.size());
}

/// Bodies and time-outs as the consumer thread delivers them.
struct Received {
  MessageBrokerSettings settings(std::string brokers, std::vector<std::string> topics) {
    MessageBrokerSettings settings;
    settings.brokers = std::move(brokers);
    settings.group_id = "group";
    settings.topics = std::move(topics);
    settings.consume_timeout = 1;
    settings.on_message = [this](const unsigned char* data, size_t size) {
      const std::lock_guard lock(mutex);
      bodies.emplace_back(reinterpret_cast<const char*>(data), size);
    };
    settings.on_timeout = [this] { ++timeouts; };
    return settings;
  }
  std::vector<std::string> all() {
    const std::lock_guard lock(mutex);
    return bodies;
  }

  std::mutex mutex;
  std::vector<std::string> bodies;
  std::atomic<int> timeouts{0};
};

constexpr const char* unknown_topic_line =
    "MESSAGE_BROKER: topic [own] is unknown, let's check the one has been already created at "
    "broker";

TEST(MessageBroker, SendsAndReceivesOverAClusterThatKnowsATopicLate) {
  LogCapture log;
  MockKafka kafka({"all", "own", "other"});
  kafka.produce("own", compressed("from before the first assignment"));
  kafka.set_topic_error("own", RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART);
  // The check is on: now the cluster has the topic.
  log.on_line = [&](const std::string& text) {
    if (text == unknown_topic_line) kafka.set_topic_error("own", RD_KAFKA_RESP_ERR_NO_ERROR);
  };
  Received received;
  {
    MessageBroker broker(received.settings(kafka.brokers(), {"all", "own"}));
    EXPECT_TRUE(log.has(Level::INFO, "MESSAGE_BROKER: topics resubscribed successfully"));
    // Joining its group again takes longer here than the constructor waits.
    ASSERT_TRUE(eventually([&] { return broker.assignments() == 1; }));
    EXPECT_TRUE(
        log.has(Level::SYSTEM, "MESSAGE_BROKER: sync offset for [all/0] from (-1001) to (0)"));
    EXPECT_TRUE(
        log.has(Level::SYSTEM, "MESSAGE_BROKER: sync offset for [own/0] from (-1001) to (1)"));

    kafka.produce("own", "no stream");
    kafka.produce("own", compressed(std::string(5000, 'x')));
    kafka.produce("own", compressed("first"));
    send(broker, "own", "second");
    send(broker, "other", "elsewhere");
    EXPECT_TRUE(eventually([&] { return received.all().size() >= 2; }));
    EXPECT_EQ(received.all(), (Texts{"first", "second"}));
    EXPECT_TRUE(log.has(Level::ERROR, "MESSAGE_BROKER: message decompressing error (-3)"));
    EXPECT_TRUE(log.has(Level::ERROR, "MESSAGE_BROKER: message decompressing error (-5)"));
    EXPECT_TRUE(log.has(Level::INFO, "MESSAGE_BROKER: message delivered to own[0] at offset (4)"));
    EXPECT_TRUE(eventually([&] { return log.has_containing("EOF reached for partition [0]"); }));
    const int before = received.timeouts;
    EXPECT_TRUE(eventually([&] { return received.timeouts > before; }));
    EXPECT_EQ(kafka.consume("other", 1), (Texts{compressed("elsewhere")}));

    constexpr int16_t produce_request = 0;
    kafka.push_errors(produce_request, {RD_KAFKA_RESP_ERR_MSG_SIZE_TOO_LARGE});
    send(broker, "own", "refused");
    EXPECT_TRUE(log.has(Level::ERROR, "MESSAGE_BROKER: message delivery failed to own[0], error: " +
                                          RdKafka::err2str(RdKafka::ERR_MSG_SIZE_TOO_LARGE)));
  }
}

TEST(MessageBroker, AHandlerSendsOnWhileTheBrokerIsDestroyed) {
  LogCapture log;
  MockKafka kafka({"own", "other"});
  Received unused;
  MessageBrokerSettings settings = unused.settings(kafka.brokers(), {"own"});
  std::promise<void> handling, destroying;
  MessageBroker* broker_made = nullptr;
  size_t sent = 0;
  settings.on_message = [&](const unsigned char*, size_t) {
    handling.set_value();
    destroying.get_future().wait();
    // Longer than the destructor waits for this thread before it turns to the producer.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    for (; std::chrono::steady_clock::now() < until; ++sent) send(*broker_made, "other", "body");
  };
  auto broker = std::make_unique<MessageBroker>(std::move(settings));
  broker_made = broker.get();
  kafka.produce("own", compressed("go"));
  handling.get_future().wait();
  destroying.set_value();
  broker.reset();
  EXPECT_FALSE(log.has_containing("there is no producer"));
  EXPECT_EQ(kafka.consume("other", sent), Texts(sent, compressed("body")));
}

// Without a broker behind it: what is sent stays in the library's queue, which holds one message.
TEST(MessageBroker, AFullQueueIsTriedThreeTimesAndNoTopicsMeanNoConsumer) {
  LogCapture log;
  {
    std::atomic<bool> interrupted{false};
    MessageBrokerSettings settings;
    settings.brokers = "127.0.0.1:1";
    settings.properties = {{"queue.buffering.max.messages", "1"}, {"message.timeout.ms", "15000"}};
    settings.interrupted = [&] { return interrupted.load(); };
    MessageBroker broker(std::move(settings));
    EXPECT_TRUE(broker.usable());
    const auto lines_of_a_send = [&](const std::string& body) {
      log.clear();
      send(broker, "topic", body);
      return log.tagged("MESSAGE_BROKER: ");
    };
    EXPECT_EQ(lines_of_a_send("waits"),
              (Texts{"WARNING message may not be sent to [topic]; error (-185): " +
                     RdKafka::err2str(RdKafka::ERR__TIMED_OUT)}));
    const std::string refused = "ERROR failed to send message to [topic]; error (-184): " +
                                RdKafka::err2str(RdKafka::ERR__QUEUE_FULL);
    EXPECT_EQ(lines_of_a_send("finds no room"), (Texts{refused, refused, refused}));
    interrupted = true;
    EXPECT_EQ(lines_of_a_send("is not waited for"), (Texts{refused}));
  }
  EXPECT_FALSE(log.has_containing("listening thread"));
}

/// A notice of the library.
struct Notice : RdKafka::Event {
  explicit Notice(Type notice_type) : m_type(notice_type) {}
  Type type() const override { return m_type; }
  RdKafka::ErrorCode err() const override { return RdKafka::ERR__TRANSPORT; }
  Severity severity() const override { return EVENT_SEVERITY_WARNING; }
  std::string fac() const override { return "FAIL"; }
  std::string str() const override { return "text of s3cret"; }
  int throttle_time() const override { return 70; }
  std::string broker_name() const override { return "broker"; }
  int broker_id() const override { return 3; }
  bool fatal() const override { return m_fatal; }

  Type m_type;
  bool m_fatal = false;
};

TEST(MessageBroker, WritesTheLibrarysNoticesWithoutSecrets) {
  MessageBrokerSettings settings;
  settings.brokers = "127.0.0.1:1";
  settings.properties = {{"sasl.password", "s3cret"}};
  MessageBroker broker(std::move(settings));
  LogCapture log;
  using Event = RdKafka::Event;
  for (const auto type :
       {Event::EVENT_ERROR, Event::EVENT_STATS, Event::EVENT_LOG, Event::EVENT_THROTTLE}) {
    Notice notice(type);
    broker.event_cb(notice);
  }
  Notice fatal(Event::EVENT_ERROR);
  fatal.m_fatal = true;
  broker.event_cb(fatal);
  const std::string reason = RdKafka::err2str(RdKafka::ERR__TRANSPORT);
  EXPECT_EQ(log.tagged("MESSAGE_BROKER: "),
            (Texts{"ERROR  error (" + reason + "): text of ***", "ERROR STAT: text of ***",
                   "INFO LOG-4-FAIL: text of ***", "INFO THROTTLED: 70ms by broker(id: 3)",
                   "ERROR FATAL error (" + reason + "): text of ***"}));
}

// Where it is read from is settled later then, and what comes before may be skipped. Under the one
// property, too, whose value changes what the rebalance callback has to call.
TEST(MessageBroker, APartitionWhoseEndIsNotToldCountsWhenItIsHeard) {
  LogCapture log;
  MockKafka kafka({"own"});
  constexpr int16_t list_offsets_request = 2;
  // One for the beginning, one for the end.
  kafka.push_errors(list_offsets_request, {RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED,
                                           RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED});
  Received received;
  MessageBrokerSettings settings = received.settings(kafka.brokers(), {"own"});
  settings.properties = {{"partition.assignment.strategy", "cooperative-sticky"}};
  MessageBroker broker(std::move(settings));
  EXPECT_TRUE(
      log.has(Level::ERROR, "MESSAGE_BROKER: failed to receive offset for [own/0]: error (29): \"" +
                                RdKafka::err2str(RdKafka::ERR_TOPIC_AUTHORIZATION_FAILED) + '"'));
  ASSERT_TRUE(eventually([&] { return broker.assignments() == 1; }));
  kafka.produce("own", compressed("after"));
  EXPECT_TRUE(eventually([&] { return !received.all().empty(); }));
  EXPECT_EQ(received.all(), (Texts{"after"}));
  EXPECT_EQ(broker.assignments(), 1u) << "not when it was assigned";
}

TEST(MessageBroker, ListensToATopicThatIsMadeWhileItRuns) {
  LogCapture log;
  MockKafka kafka({"all", "own"});
  kafka.set_topic_error("own", RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART);
  Received received;
  auto settings = received.settings(kafka.brokers(), {"all", "own"});
  // While the group gives its topics out anew nobody listens, and nothing was read that a committed
  // position could come from.
  bool between = false;
  settings.on_timeout = [&] {
    if (between || !log.has_containing(RdKafka::err2str(RdKafka::ERR__REVOKE_PARTITIONS))) return;
    between = true;
    kafka.produce("all", compressed("between"));
  };
  MessageBroker broker(std::move(settings));
  const std::string rebalance =
      "MESSAGE_BROKER: rebalance \"" + RdKafka::err2str(RdKafka::ERR__ASSIGN_PARTITIONS) + "\": ";
  ASSERT_TRUE(log.has(Level::SYSTEM, rebalance + "[all/0]"));
  EXPECT_EQ(log.count_containing(unknown_topic_line), 1u);
  EXPECT_FALSE(log.has_containing("let's resubscribe"));
  EXPECT_TRUE(log.has_containing("MESSAGE_BROKER: message receiving error (3): \""));
  EXPECT_EQ(broker.assignments(), 1u);

  kafka.set_topic_error("own", RD_KAFKA_RESP_ERR_NO_ERROR);
  // Both topics are assigned anew, and each counts when it is heard: what is published from then on
  // arrives.
  ASSERT_TRUE(eventually([&] { return broker.assignments() == 3; }));
  kafka.produce("own", compressed("after"));
  EXPECT_TRUE(log.has(Level::SYSTEM, rebalance + "[all/0], [own/0]"));
  EXPECT_TRUE(eventually([&] { return received.all().size() >= 2; }));
  EXPECT_EQ(received.all(), (Texts{"between", "after"}));
}

}  // namespace
