#include "messaging/messaging_client_properties.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace {

using cv::messaging::ClientProperties;
using cv::messaging::read_client_properties;
using cv::test::LogCapture;

struct Ignored : RdKafka::DeliveryReportCb, RdKafka::RebalanceCb, RdKafka::EventCb {
  void dr_cb(RdKafka::Message&) override {}
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
  Ignored told;
  const auto producer = producer_conf("127.0.0.1:1", *properties, told);
  const auto consumer = consumer_conf("127.0.0.1:1", "group", *properties, told, told);
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
}

// A password can end up anywhere in the file; no line of the log may show it.
TEST(ClientProperties, RefusalsNameFileLineAndPropertyAndNeverAValue) {
  const cv::test::TemporaryFolder folder;
  const std::string no_property = "not of the form property=value";
  const std::string refused = "the property is refused";
  const struct {
    std::string content;
    int line;
    std::string error;
    std::string reason;  // in a line before that of the error; the library's
  } cases[] = {
      {"hunter2\n", 1, no_property, ""},
      {"\n=hunter2\n", 2, no_property, ""},
      {"sasl.password: hunter2==\n", 1, no_property, ""},
      {"sasl.password hunter2=", 1, no_property, ""},
      {"hunter2=", 1, refused, "\"***\": No such configuration property"},
      {"pass.hunter2=", 1, refused, "\"***\": No such configuration property"},
      {"sasl.pasword=hunter2", 1, refused, "\"sasl.pasword\": No such configuration property"},
      {"client.id=a\ndebug=generic,hunter2", 2, refused, "\"debug\": Invalid value"},
      {"socket.timeout.ms=hunter2", 1, refused, "\"socket.timeout.ms\": Invalid value"},
      {"socket.timeout.ms=87654321", 1, refused, "\"socket.timeout.ms\": "},
      {"dr_cb=hunter2", 1, refused, "\"dr_cb\": "}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.content);
    LogCapture log;
    const std::string path = folder.write("kafka.properties", one.content);
    EXPECT_FALSE(read_client_properties(path));
    const auto lines = log.tagged("MESSAGE_BROKER: ");
    ASSERT_EQ(lines.size(), one.reason.empty() ? 1u : 2u);
    EXPECT_EQ(lines.back(), "ERROR Kafka properties file [" + path + "], line " +
                                std::to_string(one.line) + ": " + one.error);
    EXPECT_TRUE(log.has_containing(one.reason)) << lines.front();
    EXPECT_FALSE(log.has_containing("hunter2") || log.has_containing("87654321")) << lines.front();
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
