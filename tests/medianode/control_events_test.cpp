// From a control event to what calls get: requests, versions, databases and dead-air options.
#include "medianode/control_events.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <utility>

#include "medianode/control_side.h"
#include "support/log_capture.h"

namespace {

using cv::test::Rules;
using cv::test::sample_configuration;
using cv::test::sample_event;
using Lines = std::vector<std::string>;

const std::string sample_config = "corvanth_sample_configuration";
const std::string deadair_config = "corvanth_deadair_configuration";

std::string request_of(const std::string& config, const std::string& ids = "") {
  return R"(req {"type":"configuration_request", "configuration":")" + config + "\", " + ids +
         R"("config_topic":"node"})";
}
std::string request_of_samples(const std::string& ids) {
  return request_of("corvanth_sample_list", ids.empty() ? "" : "\"ids\":[" + ids + "], ");
}

struct Node : cv::test::ControlSide {
  /// What the handler logged of the event, besides having received it.
  Lines receive(const std::string& json) {
    log.clear();
    ControlSide::receive(json);
    Lines lines = log.tagged("SERVICE: ");
    EXPECT_TRUE(!lines.empty() && lines.front().ends_with("] received")) << json;
    lines.erase(lines.begin());
    return lines;
  }
  Lines receive(const std::string& name, const std::string& members) {
    return receive(R"({"type":")" + name + "\"," + members + "}");
  }

  /// The requests it makes of a sample configuration.
  Lines configure(uint64_t version, const Rules& rules) {
    receive(sample_configuration(version, rules));
    return std::exchange(sent, {});
  }
  void receive_sample(uint32_t id, const std::vector<cv::audio::HashPoint>& points) {
    receive(sample_event(id, points));
  }

  uint64_t version(const std::string& name) { return configuration->m_config_versions[name]; }

  cv::test::LogCapture log;
};

TEST(ControlEvents, AsksForWhatHasAnotherVersion) {
  Node node;
  node.receive(R"({"type":"config_manager_started"})");
  EXPECT_EQ(std::exchange(node.sent, {}),
            (Lines{R"(req {"type":"get_versions", "config_topic":"node"})"}));
  node.configuration->m_config_versions[deadair_config] = 4;
  EXPECT_EQ(
      node.receive("config_versions", R"("data":{"another":9,"corvanth_deadair_configuration":4})"),
      (Lines{"SYSTEM version is up-to-date, nothing to update"}));
  EXPECT_TRUE(node.sent.empty());
  EXPECT_EQ(node.receive("config_versions",
                         R"("data":{"corvanth_sample_configuration":18446744073709551615,)"
                         R"("corvanth_deadair_configuration":3})"),
            (Lines{"SYSTEM config [corvanth_deadair_configuration] version updated from (4) to (3)",
                   "SYSTEM config [corvanth_sample_configuration] version updated from (0) to "
                   "(18446744073709551615)"}));
  EXPECT_EQ(node.sent, (Lines{request_of(deadair_config), request_of(sample_config)}));
  EXPECT_EQ(node.version(deadair_config), 4u) << "recorded when the configuration arrives";
}

TEST(ControlEvents, ReadsSamplesOfEachRuleTheFirstOfAnIdentifier) {
  Node node;
  const Lines lines = node.receive(sample_config, R"("version":5,"data":[7,
    {"rule_id":1,"sample_id":7,"threshold":2,"event_object":{ "b" : [ 1.5 , "x" ], "a":null }},
    {"rule_id":1,"sample_id":7,"threshold":9,"event_object":"second","sample_name":"second"},
    {"rule_id":2,"sample_id":4294967295,"threshold":-0.5,"event_object":"two",
     "sample_name":"n\u0000m"}])");
  EXPECT_EQ(lines, (Lines{"ERROR entry of field \"data\" has invalid format",
                          "WARNING Sample [7]: sample name is not specified, using pattern "
                          "'id_<sample_id>'"}));
  EXPECT_EQ(node.version(sample_config), 5u);
  node.receive_sample(7, {{2, 1}});
  node.receive_sample(4294967295, {{2, 1}});
  ASSERT_NE(node.database(1), nullptr);
  const auto first = node.database(1)->sample(7).metadata;
  EXPECT_EQ(first->name, "id_7");
  EXPECT_EQ(first->threshold, 2.0);
  EXPECT_EQ(first->event_object, R"({"b":[1.5,"x"],"a":null})");
  const auto second = node.database(2)->sample(4294967295).metadata;
  EXPECT_EQ(second->name, std::string("n\0m", 3));
  EXPECT_EQ(second->threshold, -0.5);
  EXPECT_EQ(second->event_object, "\"two\"");
}

TEST(ControlEvents, AppliesDeadAirOptionsPerRule) {
  Node node;
  node.configuration->segment_detection_default_signal_threshold = 11;
  node.configuration->segment_detection_default_silence_hits = 12;
  node.receive(deadair_config, R"("version":10,"data":[])");  // nobody asks before the next
  EXPECT_EQ(node.receive(deadair_config, R"("version":9,"data":[
    {"rule_id":1,"dev_threshold":1e2,"pow_threshold":-1,"activity_hits":4294967295,"silence_hits":0},
    {"rule_id":1,"dev_threshold":7,"pow_threshold":7,"activity_hits":7,"silence_hits":7},
    {"rule_id":2}])")
                .size(),
            4u)
      << "each of the missing is said";
  EXPECT_EQ(node.version(deadair_config), 9u);
  const auto options_of = [&](uint64_t rule) {
    uint64_t version = 77;
    const auto& options = node.dead_air.get_options(rule, version);
    std::ostringstream text;
    text << "version " << version << ": " << options.sig_threshold << " " << options.dev_threshold
         << " " << options.pow_threshold << " " << options.activity_hits << " "
         << options.silence_hits;
    return text.str();
  };
  EXPECT_EQ(options_of(1), "version 9: 11 100 -1 4294967295 0");
  EXPECT_EQ(options_of(2), "version 9: 11 256 0.75 5 12");
  EXPECT_EQ(options_of(3), "version 0: 11 256 0.75 5 12");
  // Without rules it still takes the place of the one before.
  node.receive(deadair_config, R"("version":11,"data":[])");
  EXPECT_EQ(options_of(1), "version 0: 11 256 0.75 5 12");
}

// What stands in an entry costs the entry, anything else the event; what was in force stays.
TEST(ControlEvents, RefusesMembersThatAreMissingOrAreNotWhatTheyShouldBe) {
  const auto mandatory = [](const std::string& name) {
    return "ERROR field \"" + name + "\" is not found, it's a mandatory";
  };
  const auto invalid = [](const std::string& name) {
    return "ERROR field \"" + name + "\" has invalid format";
  };
  const auto entry = [](const std::string& members) {
    return R"("version":6,"data":[{)" + members + "}]";
  };
  const auto hash = [](const std::string& hex) {
    return R"("data":{"id":7,"hash":")" + hex + "\"}";
  };
  const std::string sample = R"("rule_id":2,"sample_id":7,"threshold":1,"event_object":1)";
  const std::string list = "corvanth_sample_list", no_hash = "ERROR field \"hash\" parsing error";
  const struct {
    std::string event, members, line;
    uint64_t version;  // recorded of the event's configuration
  } cases[] = {
      {sample_config, R"("data":[])", mandatory("version"), 5},
      {sample_config, R"("version":-1,"data":[])", invalid("version"), 5},
      {sample_config, R"("version":6,"data":{})", invalid("data"), 5},
      // The first that is missing is the one that is named.
      {sample_config, entry(R"("name":1)"), mandatory("rule_id"), 6},
      {sample_config, entry(R"("rule_id":2)"), mandatory("sample_id"), 6},
      {sample_config, entry(R"("rule_id":2,"sample_id":7)"), mandatory("threshold"), 6},
      {sample_config, entry(R"("rule_id":2,"sample_id":4294967296,"threshold":1,"event_object":1)"),
       "ERROR field \"sample_id\" is out of bound (4294967296)", 6},
      {sample_config, entry(R"("rule_id":2,"sample_id":7,"threshold":1)"),
       "WARNING field \"event_object\" is not found, it's a mandatory", 6},
      {sample_config, entry(sample + R"(,"sample_name":1)"), invalid("sample_name"), 6},
      // Beyond a double's range, and still taken by the parser.
      {sample_config, entry(sample + "7976931348623157000e300"), invalid("event_object"), 6},
      {deadair_config, R"("version":6)", mandatory("data"), 0},
      {deadair_config, R"("version":6,"data":["entry"])", invalid("data").insert(6, "entry of "),
       6},
      {deadair_config, entry(R"("rule_id":2,"dev_threshold":"1")"), invalid("dev_threshold"), 6},
      {deadair_config, entry(R"("rule_id":2,"activity_hits":4294967296)"), invalid("activity_hits"),
       6},
      {list, R"("data":{})", mandatory("id"), 0},
      {list, R"("data":{"id":4294967296,"hash":"00"})",
       "ERROR field \"id\" is out of bound (4294967296)", 0},
      {list, R"("data":{"id":7,"hash":1})", invalid("hash"), 0},
      {list, hash("4748zz"), no_hash, 0},
      {list, hash("47480000000000"), no_hash + ": too short", 0},
      {list, hash("0000000000000000"), no_hash + ": not a hash data", 0},
      {list, hash("47480000FFFFFFFF"), no_hash + ": less data than its count says", 0},
      {"config_versions", R"("data":[])", invalid("data"), 0},
      {"config_versions", R"("data":{"corvanth_sample_configuration":"5"})", invalid(sample_config),
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.event + c.members);
    Node node;
    node.configure(5, {{1, {7}}});
    node.receive_sample(7, {{2, 1}});
    const Lines lines = node.receive(c.event, c.members);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), c.line), 1) << testing::PrintToString(lines);
    EXPECT_EQ(node.version(c.event), c.version);
    EXPECT_EQ(node.samples_in_force(),
              c.event == sample_config && c.version == 6 ? "6: -|-" : "5: 7|-");
    uint64_t version = 0;
    node.dead_air.get_options(2, version);
    EXPECT_EQ(version, 0u);
    EXPECT_TRUE(node.sent.empty());
  }
}

TEST(Databases, AreBuiltOnceAllSamplesAreInAndOnlyThoseThatLackAreAskedFor) {
  Node node;
  node.databases.swap_database();  // there is none
  node.receive_sample(1, {{10, 0}});
  EXPECT_TRUE(node.swaps.empty()) << "a stray sample must not pass for a first database";
  EXPECT_EQ(node.samples_in_force(), "none");

  EXPECT_EQ(node.configure(3, {{1, {1, 2}}, {2, {2}}}), Lines{request_of_samples("")});
  node.receive_sample(1, {{10, 0}, {11, 1}});
  node.receive(sample_event(2, {{10, 0}}, 1));  // a flag that is not known
  EXPECT_EQ(node.samples_in_force(), "none") << "and is missed still";
  node.receive_sample(2, {{12, 0}});
  EXPECT_EQ(node.swaps, std::vector<bool>{true});
  EXPECT_EQ(node.samples_in_force(), "3: 12|2");

  // A configuration that overtakes the samples of the one before keeps what has arrived, and waits
  // for its own samples only.
  EXPECT_EQ(node.configure(4, {{1, {1, 3}}}), Lines{request_of_samples("3")});
  EXPECT_EQ(node.configure(5, {{1, {1, 4}}}), Lines{request_of_samples("4")});
  EXPECT_EQ(node.samples_in_force(), "3: 12|2") << "that in use, not the one in the making";
  const auto before = node.database(1);
  node.receive_sample(4, {{10, 0}});
  EXPECT_EQ(node.samples_in_force(), "5: 14|-");
  EXPECT_EQ(before->sample_count(), 2u) << "who holds the old database keeps it";

  // Nothing lacks. Of two that follow each other at once, nobody takes the first.
  EXPECT_EQ(node.configure(6, {{1, {4}}}), Lines{});
  EXPECT_TRUE(node.log.has_containing("database version (6) successfully built"));
  EXPECT_EQ(node.configure(2, {}), Lines{}) << "without rules it is built at once";
  EXPECT_TRUE(node.log.has_containing("wasn't switched; releasing"));
  EXPECT_EQ(node.samples_in_force(), "2: -|-");
  EXPECT_EQ(node.configure(7, {{1, {4}}}), Lines{request_of_samples("4")})
      << "dropped, asked again";

  Node fresh;
  EXPECT_EQ(fresh.configure(1, {}), Lines{});
  EXPECT_EQ(fresh.swaps, std::vector<bool>{true}) << "a first one without rules, too";
}

TEST(Databases, WaitFiveSecondsAfterTheLastSampleForThoseThatDoNotCome) {
  Node node;
  node.configure(1, {{1, {1, 2, 3, 4}}});
  node.clock.advance_us(4999999);
  node.receive_sample(1, {{10, 0}});
  node.clock.advance_us(4999999);
  node.receive_sample(2, {});
  node.clock.advance_us(4999999);
  node.databases.on_event_timeout();
  EXPECT_TRUE(node.swaps.empty());
  node.clock.advance_us(1);
  node.databases.on_event_timeout();
  EXPECT_TRUE(node.log.has_containing("request has been timed out"));
  EXPECT_TRUE(node.log.has_containing("(1) built with (2) missed sample(s): 3, 4"));
  EXPECT_TRUE(node.log.has_containing("(1) built with (1) empty sample(s): 2"));
  EXPECT_EQ(node.swaps, std::vector<bool>{true});
  const auto without = node.database(1);
  ASSERT_TRUE(without);

  // Late samples are published together once the last is in; no time-out runs for them.
  node.receive_sample(3, {{12, 0}});
  EXPECT_TRUE(node.log.has_containing("created")) << "what is published does not change";
  node.clock.advance_seconds(60);
  node.databases.on_event_timeout();
  EXPECT_EQ(node.database(1), without);
  node.receive_sample(4, {{13, 0}});
  EXPECT_EQ(node.samples_in_force(), "1: 134|-");
  EXPECT_EQ(without->sample_count(), 1u);
  EXPECT_EQ(node.configure(2, {{1, {1, 3, 4}}}), Lines{}) << "they are there to be reused";
}

// A request that is repeated is answered twice, sample by sample.
TEST(Databases, AreBuiltAgainForASampleThatHasChangedAndNotForOneThatComesAgain) {
  Node node;
  node.configure(1, {{1, {1, 2}}});
  node.receive_sample(1, {{10, 0}});
  node.receive_sample(1, {{10, 0}, {11, 0}});
  node.receive_sample(2, {{12, 0}});
  const auto built = node.database(1);
  ASSERT_TRUE(built);
  EXPECT_EQ(built->entry_count(), 3u) << "of two payloads the later one";
  for (int again = 0; again < 2; ++again) {
    node.receive_sample(1, {{10, 0}, {11, 0}});
    node.receive_sample(2, {{12, 0}});
  }
  EXPECT_EQ(node.swaps.size(), 1u);
  node.receive_sample(2, {{12, 1}});
  EXPECT_EQ(node.swaps.size(), 2u);
  EXPECT_NE(node.database(1), built);
}

// Every database that the pipeline sees is whole and of one piece, while samples are replaced and
// configurations follow each other on the other side.
TEST(Databases, AreWholeForThePipelineWhileNewOnesAreMade) {
  Node node;
  std::atomic<bool> done{false};
  std::atomic<uint64_t> switches{0};
  std::thread pipeline([&] {
    uint64_t seen_version = 0;
    cv::rc_ptr<cv::audio::HashDatabase> previous;
    while (!done) {
      uint64_t version = 0;
      const auto database = node.databases.get_hash_database(1, version);
      if (!database) continue;
      ASSERT_GE(version, std::exchange(seen_version, version));
      if (database != previous) ++switches;
      previous = database;
      // Both samples grow in turn, so that they differ by one point at most.
      const auto a = database->entries(1).size();
      const auto b = database->entries(2).size();
      ASSERT_EQ(database->entry_count(), a + b);
      ASSERT_TRUE(a == b || a == b + 1);
    }
  });
  for (uint64_t round = 1; !HasFailure() && (round <= 60 || switches < 20); ++round) {
    node.configure(round, {{1, {1, 2}}});
    for (const uint32_t id : {1, 2}) node.receive_sample(id, {round, {id, 0}});
    std::this_thread::yield();
  }
  done = true;
  pipeline.join();
}

}  // namespace
