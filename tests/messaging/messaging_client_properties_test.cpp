#include "messaging/messaging_client_properties.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace {

using cv::messaging::ClientProperties;
using cv::messaging::read_client_properties;
using cv::test::LogCapture;

struct NoReports : RdKafka::DeliveryReportCb {
  void dr_cb(RdKafka::Message&) override {}
};
struct NoEvents : RdKafka::RebalanceCb, RdKafka::EventCb {
  void rebalance_cb(RdKafka::KafkaConsumer*, RdKafka::ErrorCode,
                    std::vector<RdKafka::TopicPartition*>&) override {}
  void event_cb(RdKafka::Event&) override {}
};

TEST(ClientProperties, ReachBothClientsOverTheProgramsOwn) {
  const cv::test::TemporaryFolder folder;
  const auto properties = read_client_properties(folder.write(
      "kafka.properties",
      "# a comment = none\n\n  client.id =  a=b # c  \r\nsasl.password==p==\n"
      "group.id=mine\nacks=1\nlinger.ms=7\nauto.offset.reset=earliest\n\t\nclient.id=x"));
  ASSERT_TRUE(properties);
  EXPECT_EQ(properties->front().value, "a=b # c");
  NoReports reports;
  NoEvents events;
  const auto producer = producer_conf("127.0.0.1:1", *properties, reports);
  const auto consumer = consumer_conf("127.0.0.1:1", "group", *properties, events, events);
  ASSERT_TRUE(producer && consumer);
  for (const RdKafka::Conf* conf : {producer.get(), consumer.get()}) {
    const auto get = [conf](const char* name) {
      std::string value;
      return conf->get(name, value) == RdKafka::Conf::CONF_OK ? value : "(none)";
    };
    EXPECT_EQ(get("client.id"), "x");
    EXPECT_EQ(get("sasl.password"), "=p==");
    EXPECT_EQ(get("group.id"), "mine");
    EXPECT_EQ(get("linger.ms"), "7");
    EXPECT_EQ(get("acks"), "1");
    EXPECT_EQ(get("auto.offset.reset"), "smallest") << "as the library calls the earliest";
  }
  // What means nothing to one of them does not keep it from being made.
  std::string error;
  const std::unique_ptr<RdKafka::Handle> made[] = {
      std::unique_ptr<RdKafka::Handle>(RdKafka::Producer::create(producer.get(), error)),
      std::unique_ptr<RdKafka::Handle>(RdKafka::KafkaConsumer::create(consumer.get(), error))};
  for (const auto& handle : made) EXPECT_NE(handle, nullptr) << error;
}

// A password can end up anywhere in the file; no line of the log may show it.
TEST(ClientProperties, RefusalsNameFileLineAndPropertyAndNeverAValue) {
  const cv::test::TemporaryFolder folder;
  struct Case {
    std::string content;
    std::string first_line;
    std::string last_line;
  };
  const std::string refused = "MESSAGE_BROKER: failed to setup ";
  const Case cases[] = {
      {"hunter2\n", "", ", line 1: not of the form property=value"},
      {"\n=hunter2\n", "", ", line 2: not of the form property=value"},
      {"sasl.pasword=hunter2", refused + "\"sasl.pasword\": No such configuration property",
       ", line 1: the property is refused"},
      {"security.protocol = hunter2", refused + "\"security.protocol\": Invalid value",
       ", line 1: the property is refused"},
      {"client.id=a\ndebug=generic,hunter2", refused + "\"debug\": Invalid value",
       ", line 2: the property is refused"},
      {"socket.timeout.ms=hunter2", refused + "\"socket.timeout.ms\": Invalid value",
       ", line 1: the property is refused"},
      {"socket.timeout.ms=87654321",
       refused + "\"socket.timeout.ms\": ", ", line 1: the property is refused"},
      {"enable.idempotence=hunter2", refused + "\"enable.idempotence\": Expected bool value",
       ", line 1: the property is refused"},
      {"dr_cb=hunter2", refused + "\"dr_cb\": ", ", line 1: the property is refused"}};
  for (const Case& one : cases) {
    LogCapture log;
    const std::string path = folder.write("kafka.properties", one.content);
    EXPECT_FALSE(read_client_properties(path)) << one.content;
    const std::string file =
        "ERROR messaging_client_properties MESSAGE_BROKER: Kafka properties file [" + path + "]";
    ASSERT_EQ(log.texts().size(), one.first_line.empty() ? 1u : 2u) << one.content;
    EXPECT_EQ(log.texts().back(), file + one.last_line);
    EXPECT_TRUE(log.has_containing(one.first_line)) << log.texts().front();
    EXPECT_FALSE(log.has_containing("hunter2")) << log.texts().front();
    EXPECT_FALSE(log.has_containing("87654321")) << log.texts().front();
  }
  LogCapture log;
  EXPECT_FALSE(read_client_properties(folder / "none"));
  EXPECT_TRUE(log.has_containing("none] cannot be opened: No such file"));
  EXPECT_FALSE(read_client_properties(folder.path()));
  EXPECT_TRUE(log.has_containing(folder.path() + "] cannot be read"));
}

TEST(ClientProperties, SecretsAreHiddenInTheLibrarysTexts) {
  const ClientProperties properties = {{"sasl.username", "node"},
                                       {"sasl.password", "a"},
                                       {"ssl.key.password", "pass=word"},
                                       {"sasl.oauthbearer.client.secret", "s3cret"}};
  EXPECT_EQ(without_secrets("\"a\" of node at a pass=word,s3cret: bad s3crets", properties),
            "\"***\" of node at *** ***,***: bad s3crets");
}

}  // namespace
