#include "medianode/database_dispatcher.h"

#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/fake_clock.h"
#include "support/log_capture.h"

namespace {

using cv::rc_ptr;
using cv::audio::HashDatabase;
using cv::audio::HashPoint;
using cv::mn::DatabaseDispatcher;
using cv::mn::SampleConfig;
using Texts = std::vector<std::string>;

/// Samples by rule.
using Rules = std::map<uint64_t, std::vector<uint32_t>>;

class DatabaseDispatcherTest : public testing::Test {
 protected:
  DatabaseDispatcherTest() {
    DatabaseDispatcher::DatabaseContainer::counter = 0;
    dispatcher.set_on_swap([this](bool built) { swaps.push_back(built); });
  }

  /// The identifiers asked for; {0} stands for all samples, nothing for no request.
  std::set<uint32_t> configure(uint64_t version, const Rules& rules) {
    SampleConfig config(version);
    for (const auto& [rule, samples] : rules) {
      for (const uint32_t sample_id : samples) {
        rc_ptr<cv::audio::SampleMetadata> sample(new cv::audio::SampleMetadata);
        sample->id = sample_id;
        config.add(rule, sample);
      }
    }
    std::unordered_set<uint32_t>* missing = nullptr;
    if (dispatcher.on_config_received(config, missing) == 0) return {};
    return missing == nullptr ? std::set<uint32_t>{0}
                              : std::set<uint32_t>(missing->begin(), missing->end());
  }

  bool receive(uint32_t sample_id, const std::vector<HashPoint>& points, unsigned char flag = 0) {
    auto bytes = cv::audio::write_sample_packet(points);
    bytes[3] = flag;
    cv::audio::SamplePacket packet;
    EXPECT_EQ(cv::audio::SamplePacket::parse(bytes.data(), bytes.size(), packet),
              cv::audio::SamplePacket::Status::Ok);
    return dispatcher.on_sample_received(sample_id, packet);
  }

  rc_ptr<HashDatabase> get(uint64_t rule_id) {
    return dispatcher.get_hash_database(rule_id, version);
  }

  /// Which samples the rule's database knows, as a text of their identifiers.
  std::string indexed(uint64_t rule_id, uint32_t up_to = 9) {
    const auto database = get(rule_id);
    if (!database) return "none";
    std::string found;
    for (uint32_t id = 0; id <= up_to; ++id) {
      if (database->sample(id).payload) found += std::to_string(id);
    }
    return found;
  }

  cv::test::LogCapture log;
  cv::test::FakeClock clock;
  DatabaseDispatcher dispatcher{clock};
  std::vector<bool> swaps;
  uint64_t version = 77;
};

TEST_F(DatabaseDispatcherTest, BuildsOnceAllSamplesAreInAndSwitchesWithTheNextLookUp) {
  EXPECT_TRUE(receive(1, {{10, 0}}));
  EXPECT_TRUE(swaps.empty()) << "a stray sample must not pass for a first database";
  EXPECT_FALSE(get(5));
  EXPECT_EQ(version, 77u) << "untouched before anything was published";
  log.clear();

  EXPECT_EQ(configure(3, {{5, {1, 2}}, {6, {2}}}), std::set<uint32_t>{0});
  EXPECT_TRUE(receive(1, {{10, 0}, {11, 1}}));
  EXPECT_FALSE(get(5));
  EXPECT_FALSE(receive(2, {{10, 0}}, 1)) << "and is missed still";
  EXPECT_TRUE(receive(2, {{12, 0}}));
  EXPECT_EQ(swaps, std::vector<bool>{true});
  EXPECT_EQ(indexed(5), "12");
  EXPECT_EQ(indexed(6), "2");
  EXPECT_EQ(version, 3u);
  version = 0;
  EXPECT_FALSE(get(99));
  EXPECT_EQ(version, 3u) << "an unknown rule still tells the version";
  EXPECT_EQ(
      log.tagged("DATABASE_DISPATCHER: "),
      (Texts{"SYSTEM database container (1) created", "SYSTEM received sample (1) with (2) hash(s)",
             "ERROR sample (2) unknown flags: 100", "SYSTEM received sample (2) with (1) hash(s)",
             "SYSTEM all samples received, database building started",
             "SYSTEM building database version (3) with 2 configuration(s) and 2 sample(s)",
             "SYSTEM database version (3) successfully built", "SYSTEM database container swapped",
             "SYSTEM database switched to (1)"}));
}

TEST_F(DatabaseDispatcherTest, AsksOnlyForTheSamplesThatItDoesNotHave) {
  EXPECT_EQ(configure(1, {{5, {1, 2, 9}}}), std::set<uint32_t>{0});
  receive(1, {{10, 0}});
  // A configuration that overtakes the samples of the one before keeps what has arrived, and waits
  // for its own samples only.
  EXPECT_EQ(configure(2, {{5, {1, 2, 3}}, {6, {4}}}), (std::set<uint32_t>{2, 3, 4}));
  EXPECT_TRUE(swaps.empty());
  for (const uint32_t id : {2, 3, 4}) receive(id, {{10, 0}});
  EXPECT_EQ(indexed(5) + "|" + indexed(6), "123|4");

  const auto before = get(5);
  ASSERT_TRUE(before);
  EXPECT_EQ(configure(3, {{5, {3}}}), std::set<uint32_t>{});
  EXPECT_EQ(swaps, (std::vector<bool>{true, true}));
  EXPECT_EQ(indexed(5) + "|" + indexed(6), "3|none");
  EXPECT_EQ(version, 3u);
  EXPECT_EQ(before->sample_count(), 3u) << "who holds the old database keeps it";
  // A sample dropped by one configuration has to be asked for again by the next.
  EXPECT_EQ(configure(4, {{5, {1, 3}}}), std::set<uint32_t>{1});
  get(5);
  EXPECT_EQ(version, 3u) << "that of the database in use, not of the one in the making";
  EXPECT_EQ(configure(9, {}), std::set<uint32_t>{}) << "without rules it is built at once";
  EXPECT_FALSE(get(5));
  EXPECT_EQ(version, 9u);
}

TEST_F(DatabaseDispatcherTest, SamplesThatDoNotComeAreWaitedForFiveSecondsAfterTheLastOne) {
  configure(1, {{5, {1, 2, 3, 4}}});
  clock.advance_us(4999999);
  receive(1, {{10, 0}});
  clock.advance_us(4999999);
  receive(2, {});
  clock.advance_us(4999999);
  dispatcher.on_event_timeout();
  EXPECT_TRUE(swaps.empty());
  clock.advance_us(1);
  log.clear();
  dispatcher.on_event_timeout();
  EXPECT_EQ(log.tagged("DATABASE_DISPATCHER: "),
            (Texts{"WARNING request has been timed out; trying to build what has been received",
                   "WARNING not all samples are received",
                   "SYSTEM building database version (1) with 1 configuration(s) and 4 sample(s)",
                   "SYSTEM database version (1) built with (2) missed sample(s): 3, 4",
                   "SYSTEM database version (1) built with (1) empty sample(s): 2",
                   "SYSTEM database container swapped"}));
  EXPECT_EQ(swaps, std::vector<bool>{true});
  const auto without = get(5);
  ASSERT_TRUE(without);

  // Late samples share one fresh container, published once the last is in; no time-out runs for it.
  log.clear();
  receive(3, {{12, 0}});
  clock.advance_seconds(60);
  dispatcher.on_event_timeout();
  EXPECT_EQ(get(5), without);
  receive(4, {{13, 0}});
  EXPECT_EQ(indexed(5), "134");
  EXPECT_EQ(without->sample_count(), 1u);
  EXPECT_EQ(log.count_containing("created"), 1u);
  EXPECT_EQ(configure(2, {{5, {1, 3, 4}}}), std::set<uint32_t>{}) << "they are there to be reused";
}

TEST_F(DatabaseDispatcherTest, WhatIsNotBuiltIsNotPublishedAndWhatNobodyTookIsReleased) {
  dispatcher.swap_database();
  EXPECT_TRUE(swaps.empty());
  dispatcher.build_database();
  dispatcher.swap_database();
  EXPECT_EQ(swaps, std::vector<bool>{false});
  configure(1, {});
  configure(2, {});
  EXPECT_EQ(swaps, (std::vector<bool>{false, true, true}));
  EXPECT_FALSE(get(5));
  EXPECT_EQ(version, 2u);
  EXPECT_EQ(log.tagged("DATABASE_DISPATCHER: "),
            (Texts{"ERROR Cannot swap not build database", "ERROR database does not exist",
                   "SYSTEM database container (1) created",
                   "SYSTEM new database has no configurations to build",
                   "SYSTEM database container swapped", "SYSTEM database container (2) created",
                   "SYSTEM new database has no configurations to build",
                   "INFO database container (1) wasn't switched; releasing",
                   "SYSTEM database container (1) destroyed", "SYSTEM database container swapped",
                   "SYSTEM database switched to (2)"}));
}

// A request that is repeated is answered twice, sample by sample.
TEST_F(DatabaseDispatcherTest, BuildsAgainForASampleThatHasChangedAndNotForOneThatComesAgain) {
  configure(1, {{5, {1, 2}}});
  receive(1, {{10, 0}});
  receive(1, {{10, 0}, {11, 0}});
  receive(2, {{12, 0}});
  const auto built = get(5);
  ASSERT_TRUE(built);
  EXPECT_EQ(built->entry_count(), 3u) << "of two payloads the later one";
  for (const uint32_t id : {1, 2}) {
    for (int again = 0; again < 3; ++again) {
      EXPECT_TRUE(receive(id, id == 1 ? std::vector<HashPoint>{{10, 0}, {11, 0}}
                                      : std::vector<HashPoint>{{12, 0}}));
    }
  }
  EXPECT_EQ(swaps, std::vector<bool>{true});
  EXPECT_EQ(get(5), built);
  EXPECT_TRUE(receive(2, {{12, 1}}));
  EXPECT_EQ(swaps, (std::vector<bool>{true, true}));
  EXPECT_NE(get(5), built);
  // What is held but not yet built again is built when the rest is in.
  configure(2, {{5, {1, 3}}});
  receive(1, {{10, 0}, {11, 0}});
  receive(3, {{13, 0}});
  EXPECT_EQ(indexed(5), "13");
}

// Every database that the pipeline sees is whole and of one piece, while samples are replaced and
// configurations follow each other on the other side.
TEST_F(DatabaseDispatcherTest, ThePipelineReadsWholeDatabasesWhileNewOnesAreMade) {
  std::atomic<bool> done{false};
  std::atomic<uint64_t> switches{0};
  std::thread pipeline([&] {
    uint64_t seen_version = 0;
    rc_ptr<HashDatabase> previous;
    while (!done) {
      uint64_t now_version = 0;
      const auto database = dispatcher.get_hash_database(5, now_version);
      if (!database) continue;
      ASSERT_GE(now_version, std::exchange(seen_version, now_version));
      if (database != previous) ++switches;
      previous = database;
      // Both samples grow in turn, so that they differ by one point at most.
      const auto a = database->entries(1).size();
      const auto b = database->entries(2).size();
      ASSERT_EQ(database->entry_count(), a + b);
      ASSERT_TRUE(a == b || a == b + 1);
    }
  });
  std::size_t size = 1;
  for (uint64_t round = 1; !HasFailure() && (round <= 60 || switches < 20); ++round, ++size) {
    configure(round, {{5, {1, 2}}});
    for (const uint32_t id : {1, 2}) receive(id, std::vector<HashPoint>(size, HashPoint{id, 0}));
    std::this_thread::yield();
  }
  done = true;
  pipeline.join();
}

}  // namespace
