#include "medianode/control_events.h"

#include <gtest/gtest.h>

#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "utils/utils_json.h"

namespace {

using cv::mn::Configuration;
using cv::mn::ControlEvents;
using Lines = std::vector<std::string>;

const std::string sample_config = "corvanth_sample_configuration";
const std::string deadair_config = "corvanth_deadair_configuration";
const std::string sample_list = "corvanth_sample_list";

/// A packet of one point at frame 1 with hash 2.
const std::string one_point = "47480000010000000100000002000000";

std::string request_of(const std::string& config, const std::string& ids = "") {
  return R"(req {"type":"configuration_request", "configuration":")" + config + "\", " + ids +
         R"("config_topic":"node"})";
}
std::string mandatory(const std::string& name) {
  return "field \"" + name + "\" is not found, it's a mandatory";
}
std::string invalid(const std::string& name) {
  return "ERROR field \"" + name + "\" has invalid format";
}
std::string defaulted(const std::string& name) {
  return "INFO field \"" + name + "\" is not found, using value from the service config";
}

/// The node's control side without Kafka: events go in, requests come out as "topic json".
struct Node {
  Node() {
    dead_air.on_dead_air_config(
        new cv::mn::DeadAirConfig(0, cv::mn::default_segment_detection(*configuration)));
  }

  /// What the node logged of the event, besides having received it and what the dispatchers log.
  Lines receive(const std::string& name, const std::string& json) {
    cv::test::LogCapture log;
    rapidjson::Document document;
    EXPECT_FALSE(document.Parse(json.c_str()).HasParseError()) << json;
    handlers.at(name)(name, &document);
    Lines lines = log.tagged("SERVICE: ");
    EXPECT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "SYSTEM event [" + name + "] received");
    lines.erase(lines.begin());
    return lines;
  }

  /// One sample of rule 1 and its data, for tests that change a running node.
  void run_a_database() {
    receive(sample_config, R"({"version":5,"data":[{"rule_id":1,"sample_id":7,"threshold":2,)"
                           R"("event_object":null,"sample_name":"seven"}]})");
    receive(sample_list, R"({"data":{"id":7,"hash":")" + one_point + R"("}})");
    sent.clear();
  }

  uint64_t version(const std::string& name) { return configuration->m_config_versions[name]; }
  cv::rc_ptr<cv::audio::HashDatabase> database(uint64_t rule_id) {
    uint64_t ignored = 0;
    return databases.get_hash_database(rule_id, ignored);
  }

  cv::rc_ptr<Configuration> configuration{new Configuration};
  cv::test::FakeClock clock;
  cv::mn::DatabaseDispatcher databases{clock};
  cv::mn::DeadAirDispatcher dead_air;
  Lines sent;
  ControlEvents events{configuration,
                       databases,
                       dead_air,
                       {"req", "node"},
                       [this](const std::string& topic, const std::string& json) {
                         sent.push_back(topic + " " + json);
                       }};
  cv::messaging::EventDispatcher::Handlers handlers = events.handlers();
};

TEST(ControlEvents, AsksForWhatHasAnotherVersion) {
  Node node;
  EXPECT_EQ(node.receive("config_manager_started", "{}"),
            (Lines{"SYSTEM requesting config versions"}));
  EXPECT_EQ(node.sent, (Lines{R"(req {"type":"get_versions", "config_topic":"node"})"}));
  node.sent.clear();
  node.configuration->m_config_versions[deadair_config] = 4;
  EXPECT_EQ(node.receive("config_versions",
                         R"({"data":{"another":9,"corvanth_deadair_configuration":4}})"),
            (Lines{"SYSTEM version is up-to-date, nothing to update"}));
  EXPECT_TRUE(node.sent.empty());
  EXPECT_EQ(node.receive("config_versions",
                         R"({"data":{"corvanth_sample_configuration":18446744073709551615,)"
                         R"("corvanth_deadair_configuration":3}})"),
            (Lines{"SYSTEM config [corvanth_deadair_configuration] version updated from (4) to (3)",
                   "SYSTEM config [corvanth_sample_configuration] version updated from (0) to "
                   "(18446744073709551615)"}));
  EXPECT_EQ(node.sent, (Lines{request_of(deadair_config), request_of(sample_config)}));
  EXPECT_EQ(node.version(deadair_config), 4u) << "recorded when the configuration arrives";
  EXPECT_EQ(node.version(sample_config), 0u);
}

TEST(ControlEvents, BuildsADatabaseFromConfigurationAndSamples) {
  Node node;
  const Lines lines = node.receive(sample_config,
                                   R"({"version":5,"data":[7,
    {"rule_id":1,"sample_id":7,"threshold":2,"event_object":{ "b" : [ 1.5 , "x" ], "a":null }},
    {"rule_id":1,"sample_id":7,"threshold":9,"event_object":"second","sample_name":"second"},
    {"rule_id":2,"sample_id":7,"threshold":-0.5,"event_object":"two","sample_name":"n\u0000m"}]})");
  EXPECT_EQ(lines, (Lines{"ERROR entry of field \"data\" has invalid format",
                          "WARNING Sample [7]: sample name is not specified, using pattern "
                          "'id_<sample_id>'"}));
  EXPECT_EQ(node.sent, (Lines{request_of(sample_list)}));
  EXPECT_EQ(node.version(sample_config), 5u);
  EXPECT_EQ(node.database(1), nullptr);
  node.receive(sample_list, R"({"data":{"id":7,"hash":")" + one_point + R"("}})");

  ASSERT_NE(node.database(1), nullptr);
  const auto first = node.database(1)->sample(7).metadata;
  EXPECT_EQ(first->name, "id_7");
  EXPECT_EQ(first->threshold, 2.0);
  EXPECT_EQ(first->event_object, R"({"b":[1.5,"x"],"a":null})");
  const auto second = node.database(2)->sample(7).metadata;
  EXPECT_EQ(second->name, std::string("n\0m", 3));
  EXPECT_EQ(second->threshold, -0.5);
  EXPECT_EQ(second->event_object, "\"two\"");
  EXPECT_EQ(node.database(2)->entries(2).size(), 1u);

  node.sent.clear();
  node.receive(sample_config,
               R"({"version":7,"data":[
    {"rule_id":3,"sample_id":7,"threshold":1,"event_object":0},
    {"rule_id":3,"sample_id":4294967295,"threshold":1,"event_object":0}]})");
  EXPECT_EQ(node.database(3), nullptr);
  EXPECT_EQ(node.sent, (Lines{request_of(sample_list, R"("ids":[4294967295], )")}));
}

TEST(ControlEvents, AppliesDeadAirOptionsPerRule) {
  Node node;
  node.configuration->segment_detection_default_signal_threshold = 11;
  node.configuration->segment_detection_default_silence_hits = 12;
  EXPECT_EQ(node.receive(deadair_config, R"({"version":9,"data":[
    {"rule_id":1,"dev_threshold":1e2,"pow_threshold":-1,"activity_hits":4294967295,"silence_hits":0},
    {"rule_id":1,"dev_threshold":7,"pow_threshold":7,"activity_hits":7,"silence_hits":7},
    {"rule_id":2}]})"),
            (Lines{defaulted("dev_threshold"), defaulted("pow_threshold"),
                   defaulted("activity_hits"), defaulted("silence_hits")}));
  EXPECT_EQ(node.version(deadair_config), 9u);
  struct Expected {
    uint64_t rule_id, version;
    double dev, pow;
    uint64_t activity, silence;
  };
  for (const Expected& e : {Expected{1, 9, 100, -1, 4294967295, 0},
                            Expected{2, 9, 256, 0.75, 5, 12}, Expected{3, 0, 256, 0.75, 5, 12}}) {
    uint64_t version = 77;
    const auto& options = node.dead_air.get_options(e.rule_id, version);
    EXPECT_EQ(version, e.version);
    EXPECT_EQ(options.sig_threshold, 11);
    EXPECT_EQ(options.dev_threshold, e.dev);
    EXPECT_EQ(options.pow_threshold, e.pow);
    EXPECT_EQ(options.activity_hits, e.activity);
    EXPECT_EQ(options.silence_hits, e.silence);
  }

  // Without rules it still takes the place of the one before.
  node.receive(deadair_config, R"({"version":11,"data":[]})");
  uint64_t version = 77;
  EXPECT_EQ(node.dead_air.get_options(1, version).dev_threshold, 256);
  EXPECT_EQ(version, 0u);
}

// What stands in an entry costs the entry, anything else the event; what was in force stays.
TEST(ControlEvents, RefusesMembersThatAreMissingOrAreNotWhatTheyShouldBe) {
  const std::string sample = R"("rule_id":3,"sample_id":7,"threshold":1,"event_object":1)";
  const auto samples = [](const std::string& entry) {
    return R"({"version":6,"data":[{)" + entry + "}]}";
  };
  const struct {
    std::string event, json, line;
    uint64_t version;  // recorded of the event's configuration
  } cases[] = {
      {sample_config, R"({"data":[]})", "ERROR " + mandatory("version"), 5},
      {sample_config, R"({"version":-1,"data":[]})", invalid("version"), 5},
      {sample_config, R"({"version":6,"data":{}})", invalid("data"), 5},
      // The first that is missing is the one that is named.
      {sample_config, samples(R"("name":1)"), "ERROR " + mandatory("rule_id"), 6},
      {sample_config, samples(R"("rule_id":3)"), "ERROR " + mandatory("sample_id"), 6},
      {sample_config, samples(R"("rule_id":3,"sample_id":7)"), "ERROR " + mandatory("threshold"),
       6},
      {sample_config,
       samples(R"("rule_id":3,"sample_id":4294967296,"threshold":1,"event_object":1)"),
       "ERROR field \"sample_id\" is out of bound (4294967296)", 6},
      {sample_config, samples(R"("rule_id":3,"sample_id":7,"threshold":1)"),
       "WARNING " + mandatory("event_object"), 6},
      {sample_config, samples(sample + R"(,"sample_name":1)"), invalid("sample_name"), 6},
      // Beyond a double's range, and still taken by the parser.
      {sample_config, samples(sample + "7976931348623157000e300"), invalid("event_object"), 6},
      {sample_config, R"({"version":6,"data":["entry"]})", invalid("data").insert(6, "entry of "),
       6},
      {deadair_config, R"({"version":6})", "ERROR " + mandatory("data"), 0},
      {deadair_config, samples(R"("rule_id":3,"dev_threshold":"1")"), invalid("dev_threshold"), 6},
      {deadair_config, samples(R"("rule_id":3,"activity_hits":4294967296)"),
       invalid("activity_hits"), 6},
      {deadair_config, samples(R"("dev_threshold":1)"), "ERROR " + mandatory("rule_id"), 6},
      {sample_list, "{}", "ERROR " + mandatory("data"), 0},
      {sample_list, R"({"data":{}})", "ERROR " + mandatory("id"), 0},
      {sample_list, R"({"data":{"id":7}})", "ERROR " + mandatory("hash"), 0},
      {sample_list, R"({"data":{"id":7,"hash":1}})", invalid("hash"), 0},
      {"config_versions", R"({"data":{"corvanth_sample_configuration":"5"}})",
       invalid("corvanth_sample_configuration"), 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.event + c.json);
    Node node;
    node.run_a_database();
    const auto before = node.database(1);
    const Lines lines = node.receive(c.event, c.json);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), c.line), 1) << testing::PrintToString(lines);
    EXPECT_EQ(node.version(c.event), c.version);
    EXPECT_EQ(node.database(1) == before, c.event != sample_config || c.version == 5);
    EXPECT_EQ(node.database(3), nullptr);
    uint64_t version = 0;
    node.dead_air.get_options(3, version);
    EXPECT_EQ(version, 0u);
    EXPECT_TRUE(node.sent.empty());
  }
}

}  // namespace
