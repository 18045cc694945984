#include "medianode/control_events.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "medianode/node_identity.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"

namespace {

using cv::mn::Configuration;
using cv::mn::ControlEvents;
using Lines = std::vector<std::string>;

const char* const sample_config = "corvanth_sample_configuration";
const char* const deadair_config = "corvanth_deadair_configuration";

const std::string deadair_request =
    R"(req {"type":"configuration_request", "configuration":"corvanth_deadair_configuration", "config_topic":"node"})";
const std::string sample_request =
    R"(req {"type":"configuration_request", "configuration":"corvanth_sample_configuration", "config_topic":"node"})";
const std::string all_samples_request =
    R"(req {"type":"configuration_request", "configuration":"corvanth_sample_list", "config_topic":"node"})";

std::string mandatory(const std::string& name, const std::string& level = "ERROR") {
  return level + " SERVICE: field \"" + name + "\" is not found, it's a mandatory";
}
std::string invalid(const std::string& name) {
  return "ERROR SERVICE: field \"" + name + "\" has invalid format";
}
std::string defaulted(const std::string& name) {
  return "INFO SERVICE: field \"" + name + "\" is not found, using value from the service config";
}

/// A packet of one point at frame 1 with hash 2.
const char* const one_point = "47480000010000000100000002000000";

/// The node's control side without Kafka: events go in, requests come out as "topic json".
struct Node {
  Node() { dead_air.on_dead_air_config(new cv::mn::DeadAirConfig(0, default_options())); }

  cv::audio::SegmentDetectionOptions default_options() const {
    return cv::mn::default_segment_detection(*configuration);
  }

  /// What the node logged of the event, besides having received it and what the dispatchers log.
  Lines receive(const std::string& name, const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.c_str());
    EXPECT_FALSE(document.HasParseError()) << json;
    cv::test::LogCapture log;
    handlers.at(name)(name, &document);
    Lines lines;
    for (const auto& line : log.lines()) {
      if (line.text.find("SERVICE: ") != 0) continue;
      const auto level = static_cast<std::size_t>(line.level);
      lines.push_back(std::string(cv::log::level_to_string[level]) + " " + line.text);
    }
    EXPECT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "SYSTEM SERVICE: event [" + name + "] received");
    lines.erase(lines.begin());
    return lines;
  }

  /// One sample of rule 1 and its data, for tests that change a running node.
  void run_a_database() {
    receive(sample_config, R"({"version":5,"data":[{"rule_id":1,"sample_id":7,"threshold":2,)"
                           R"("event_object":null,"sample_name":"seven"}]})");
    receive("corvanth_sample_list",
            R"({"data":{"id":7,"hash":")" + std::string(one_point) + R"("}})");
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

TEST(NodeIdentity, IsMadeOfTheAddressTowardsTheBrokerAndThePort) {
  struct Case {
    std::string broker;
    std::string identity;
  };
  const Case cases[] = {
      {"127.0.0.1:9092", "corvanth_medianode_127o0o0o1_5060"},
      {"127.0.0.1", "corvanth_medianode_127o0o0o1_5060"},
      {"127.0.0.1:9092,10.1.2.3:9092", "corvanth_medianode_127o0o0o1_5060"},
      {"localhost:9092", "corvanth_medianode__5060"},
      {"127.0.0:9092", "corvanth_medianode__5060"},
      {"0.0.0.0:9092", "corvanth_medianode__5060"},
      {":9092", "corvanth_medianode__5060"},
      {"", "corvanth_medianode__5060"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(cv::mn::node_identity(c.broker, 5060), c.identity) << c.broker;
}

TEST(ControlEvents, WritesItsRequests) {
  Node node;
  node.events.event_request_config_versions();
  node.events.event_request_config("c");
  node.events.event_request_samples(nullptr);
  const std::unordered_set<uint32_t> none;
  node.events.event_request_samples(&none);
  const std::unordered_set<uint32_t> two = {4294967295u, 8};
  node.events.event_request_samples(&two);
  const std::string ids = std::to_string(*two.begin()) + ", " + std::to_string(*++two.begin());
  EXPECT_EQ(
      node.sent,
      (Lines{
          R"(req {"type":"get_versions", "config_topic":"node"})",
          R"(req {"type":"configuration_request", "configuration":"c", "config_topic":"node"})",
          all_samples_request, all_samples_request,
          R"(req {"type":"configuration_request", "configuration":"corvanth_sample_list", "ids":[)" +
              ids + R"(], "config_topic":"node"})"}));
}

struct Case {
  std::string json;
  Lines lines;
  Lines sent;
};

TEST(ControlEvents, AsksForTheVersionsWhenTheManagerStarts) {
  Node node;
  EXPECT_EQ(node.receive("config_manager_started", "{}"),
            (Lines{"SYSTEM SERVICE: requesting config versions"}));
  EXPECT_EQ(node.sent, (Lines{R"(req {"type":"get_versions", "config_topic":"node"})"}));
}

TEST(ControlEvents, FollowsTheVersions) {
  const std::string current = "SYSTEM SERVICE: version is up-to-date, nothing to update";
  const std::string dead_air_new =
      "SYSTEM SERVICE: config [corvanth_deadair_configuration] version updated from (4) to (3)";
  const std::string sample_new =
      "SYSTEM SERVICE: config [corvanth_sample_configuration] version updated from (0) to "
      "(18446744073709551615)";
  const Case cases[] = {
      {R"({})", {"ERROR SERVICE: field \"data\" is not found"}, {}},
      {R"({"data":[]})", {invalid("data")}, {}},
      {R"({"data":{}})", {current}, {}},
      {R"({"data":{"another":9}})", {current}, {}},
      {R"({"data":{"corvanth_sample_configuration":0,"corvanth_deadair_configuration":4}})",
       {current},
       {}},
      {R"({"data":{"corvanth_deadair_configuration":3}})", {dead_air_new}, {deadair_request}},
      {R"({"data":{"corvanth_sample_configuration":18446744073709551615,)"
       R"("corvanth_deadair_configuration":3}})",
       {dead_air_new, sample_new},
       {deadair_request, sample_request}},
      {R"({"data":{"corvanth_sample_configuration":"1","corvanth_deadair_configuration":3}})",
       {dead_air_new, invalid(sample_config)},
       {deadair_request}},
      {R"({"data":{"corvanth_sample_configuration":-1}})", {invalid(sample_config)}, {}},
  };
  for (const Case& c : cases) {
    Node node;
    node.configuration->m_config_versions[deadair_config] = 4;
    EXPECT_EQ(node.receive("config_versions", c.json), c.lines) << c.json;
    EXPECT_EQ(node.sent, c.sent) << c.json;
    EXPECT_EQ(node.version(deadair_config), 4u) << "recorded when the configuration arrives";
    EXPECT_EQ(node.version(sample_config), 0u);
  }
}

TEST(ControlEvents, RefusesSampleEntriesOneByOne) {
  const std::string no_name =
      "WARNING SERVICE: Sample [3]: sample name is not specified, using pattern 'id_<sample_id>'";
  const Case cases[] = {
      {R"({"data":[]})", {mandatory("version")}, {}},
      {R"({"version":1})", {mandatory("data")}, {}},
      {R"({"version":1,"data":{}})", {invalid("data")}, {}},
      {R"({"version":"1","data":[]})", {invalid("version")}, {}},
      {R"({"version":1,"data":[]})",
       {"SYSTEM SERVICE: No sample configuration update is required"},
       {}},
      {R"({"version":1,"data":[{"sample_id":3,"threshold":1,"event_object":1,"sample_name":""},
                               {"rule_id":1,"threshold":1,"event_object":1,"sample_name":""},
                               {"rule_id":1,"sample_id":3,"event_object":1,"sample_name":""},
                               {"rule_id":1,"sample_id":3,"threshold":1,"sample_name":""},
                               {"rule_id":1,"sample_id":4294967296,"threshold":1,"event_object":1},
                               7,
                               {"rule_id":1,"sample_id":3,"threshold":1,"event_object":1}]})",
       {mandatory("rule_id"), mandatory("sample_id"), mandatory("threshold"),
        mandatory("event_object", "WARNING"),
        "ERROR SERVICE: field \"sample_id\" is out of bound (4294967296)",
        "ERROR SERVICE: entry of field \"data\" has invalid format", no_name},
       {all_samples_request}},
  };
  for (const Case& c : cases) {
    Node node;
    EXPECT_EQ(node.receive(sample_config, c.json), c.lines) << c.json;
    EXPECT_EQ(node.sent, c.sent) << c.json;
  }
}

TEST(ControlEvents, BuildsADatabaseFromConfigurationAndSamples) {
  Node node;
  node.receive(sample_config,
               R"({"version":5,"data":[
    {"rule_id":1,"sample_id":7,"threshold":2,"event_object":{ "b" : [ 1.5 , "x" ], "a":null }},
    {"rule_id":1,"sample_id":7,"threshold":9,"event_object":"second","sample_name":"second"},
    {"rule_id":2,"sample_id":7,"threshold":-0.5,"event_object":"two","sample_name":"n\u0000m"}]})");
  EXPECT_EQ(node.sent, (Lines{all_samples_request}));
  EXPECT_EQ(node.version(sample_config), 5u);
  EXPECT_EQ(node.database(1), nullptr);
  node.receive("corvanth_sample_list",
               R"({"data":{"id":7,"hash":")" + std::string(one_point) + R"("}})");

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
  EXPECT_EQ(node.receive(sample_config, R"({"version":6,"data":[{"rule_id":3,"sample_id":7,)"
                                        R"("threshold":1,"event_object":0,"sample_name":"s"}]})"),
            (Lines{"SYSTEM SERVICE: No sample configuration update is required"}));
  EXPECT_TRUE(node.sent.empty());
  EXPECT_EQ(node.database(1), nullptr);
  EXPECT_NE(node.database(3), nullptr);

  node.receive(sample_config,
               R"({"version":7,"data":[
    {"rule_id":3,"sample_id":7,"threshold":1,"event_object":0,"sample_name":"s"},
    {"rule_id":3,"sample_id":8,"threshold":1,"event_object":0,"sample_name":"t"}]})");
  EXPECT_EQ(
      node.sent,
      (Lines{
          R"(req {"type":"configuration_request", "configuration":"corvanth_sample_list", "ids":[8], "config_topic":"node"})"}));
}

TEST(ControlEvents, ChecksSampleData) {
  const std::string parsing = "ERROR SERVICE: field \"hash\" parsing error";
  const auto with_hash = [](const std::string& hash) {
    return R"({"data":{"id":7,"hash":")" + hash + R"("}})";
  };
  const Case cases[] = {
      {R"({})", {mandatory("data")}, {}},
      {R"({"data":[]})", {invalid("data")}, {}},
      {R"({"data":{"hash":""}})", {mandatory("id")}, {}},
      {R"({"data":{"id":7}})", {mandatory("hash")}, {}},
      {R"({"data":{"id":4294967296,"hash":""}})",
       {"ERROR SERVICE: field \"id\" is out of bound (4294967296)"},
       {}},
      {with_hash(""), {parsing}, {}},
      {with_hash("474"), {parsing}, {}},
      {with_hash("474x0000"), {parsing}, {}},
      {with_hash("47480000010000"), {parsing + ": too short"}, {}},
      {with_hash("48470000000000000000"), {parsing + ": not a hash data"}, {}},
      {with_hash("4748000002000000" + std::string(one_point).substr(16)),
       {parsing + ": less data than its count says"},
       {}},
      {with_hash("4748000000000000"), {}, {}},
      {with_hash(std::string(one_point) + "ff"), {}, {}},
  };
  for (const Case& c : cases) {
    Node node;
    node.run_a_database();
    const auto before = node.database(1);
    EXPECT_EQ(node.receive("corvanth_sample_list", c.json), c.lines) << c.json;
    EXPECT_EQ(node.database(1) == before, !c.lines.empty()) << c.json;
  }
}

TEST(ControlEvents, AppliesDeadAirOptionsPerRule) {
  Node node;
  node.configuration->segment_detection_default_signal_threshold = 11;
  node.configuration->segment_detection_default_silence_hits = 12;
  EXPECT_EQ(
      node.receive(deadair_config, R"({"version":9,"data":[
    {"rule_id":1,"dev_threshold":1e2,"pow_threshold":-1,"activity_hits":4294967295,"silence_hits":0},
    {"rule_id":1,"dev_threshold":7,"pow_threshold":7,"activity_hits":7,"silence_hits":7},
    {"dev_threshold":7}, "rule",
    {"rule_id":2}]})"),
      (Lines{mandatory("rule_id"), "ERROR SERVICE: entry of field \"data\" has invalid format",
             defaulted("dev_threshold"), defaulted("pow_threshold"), defaulted("activity_hits"),
             defaulted("silence_hits")}));
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
}

TEST(ControlEvents, TakesNoMemberForWhatItIsNot) {
  // A well-formed event of each kind with one member left open, the JSON types it takes, and whether
  // it stands in an entry: then the event is applied without the entry.
  struct Member {
    std::string event, name, before, after, takes;
    bool in_entry;
  };
  const std::string sample = R"({"version":6,"data":[{"rule_id":3,"sample_id":7,)";
  const std::string dead_air = R"({"version":6,"data":[{"rule_id":3,)";
  const Member members[] = {
      {sample_config, "version", R"({"data":[],"version":)", "}", "uU", false},
      {sample_config, "data", R"({"version":6,"data":)", "}", "a", false},
      {sample_config, "rule_id",
       R"({"version":6,"data":[{"sample_id":7,"threshold":1,"event_object":1,"rule_id":)", "}]}",
       "uU", true},
      {sample_config, "sample_id",
       R"({"version":6,"data":[{"rule_id":3,"threshold":1,"event_object":1,"sample_id":)", "}]}",
       "uU", true},
      {sample_config, "threshold", sample + R"("event_object":1,"threshold":)", "}]}", "uUndh",
       true},
      {sample_config, "sample_name", sample + R"("event_object":1,"threshold":1,"sample_name":)",
       "}]}", "s", true},
      {sample_config, "event_object", sample + R"("threshold":1,"event_object":)", "}]}",
       "0tunUhdsao", true},
      {deadair_config, "version", R"({"data":[],"version":)", "}", "uU", false},
      {deadair_config, "data", R"({"version":6,"data":)", "}", "a", false},
      {deadair_config, "rule_id", R"({"version":6,"data":[{"rule_id":)", "}]}", "uU", true},
      {deadair_config, "dev_threshold", dead_air + R"("dev_threshold":)", "}]}", "uUndh", true},
      {deadair_config, "pow_threshold", dead_air + R"("pow_threshold":)", "}]}", "uUndh", true},
      {deadair_config, "activity_hits", dead_air + R"("activity_hits":)", "}]}", "u", true},
      {deadair_config, "silence_hits", dead_air + R"("silence_hits":)", "}]}", "u", true},
      {"corvanth_sample_list", "data", R"({"data":)", "}", "o", false},
      {"corvanth_sample_list", "id", R"({"data":{"hash":"00","id":)", "}}", "uU", false},
      {"corvanth_sample_list", "hash", R"({"data":{"id":7,"hash":)", "}}", "s", false},
      {"config_versions", "data", R"({"data":)", "}", "o", false},
  };
  const std::pair<char, std::string> values[] = {
      {'0', "null"},
      {'t', "true"},
      {'u', "1"},
      {'n', "-1"},
      {'U', "4294967296"},
      {'h', "18446744073709551616"},
      {'d', "1.5"},
      {'s', "\"1\""},
      {'a', "[1]"},
      {'o', "{\"rule_id\":1}"},
      // Beyond a double's range, and still taken by the parser.
      {'i', "17976931348623157000e300"}};
  for (const Member& m : members) {
    for (const auto& [type, value] : values) {
      if (m.takes.find(type) != m.takes.npos) continue;
      const std::string json = m.before + value + m.after;
      Node node;
      node.run_a_database();
      const auto before = node.database(1);
      const Lines lines = node.receive(m.event, json);
      EXPECT_EQ(std::count(lines.begin(), lines.end(), invalid(m.name)), 1) << json;
      EXPECT_EQ(node.version(m.event), m.in_entry                 ? 6u
                                       : m.event == sample_config ? 5u
                                                                  : 0u)
          << json;
      uint64_t version = 0;
      node.dead_air.get_options(3, version);
      EXPECT_EQ(version, 0u) << json;
      EXPECT_EQ(node.database(3), nullptr) << json;
      EXPECT_EQ(node.database(1) == before, !m.in_entry || m.event != sample_config) << json;
      EXPECT_TRUE(node.sent.empty()) << json;
    }
  }
}

}  // namespace
