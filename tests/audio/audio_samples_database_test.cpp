#include "audio/audio_samples_database.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "audio/hash_samples.h"

namespace {

using cv::audio::SamplesDatabase;
using cv::test::make_metadata;
using cv::test::make_payload;
using State = SamplesDatabase::ConfiguraionState;
using Status = SamplesDatabase::BuildStatus;
using Calls = std::vector<std::pair<Status, unsigned>>;

/// Samples 1 and 2 have points, 3 has none, 4 is announced only, 5 is unknown.
SamplesDatabase filled(const std::vector<std::vector<uint32_t>>& rules) {
  SamplesDatabase database(12);
  database.announce_payload(1);
  database.set_payload(1, make_payload({{100, 0}, {101, 1}}));
  database.set_payload(2, make_payload({{100, 7}}));
  database.set_payload(3, make_payload({}));
  database.announce_payload(4);
  for (std::size_t rule = 0; rule < rules.size(); ++rule) {
    cv::audio::SamplesConfiguration configuration;
    configuration.id = rule;
    for (const uint32_t id : rules[rule]) configuration.samples.push_back(make_metadata(id));
    database.add_configuration(configuration);
  }
  return database;
}

Calls build(SamplesDatabase& database, bool force, bool report_added) {
  Calls calls;
  database.build(
      force,
      [&](Status status, unsigned id) {
        calls.push_back({status, id});
      },
      report_added);
  return calls;
}

TEST(SamplesDatabase, BuildsEachRuleAsFarAsItsSamplesAreThere) {
  struct Case {
    std::vector<uint32_t> samples;
    State state;
    std::size_t indexed;
    Calls missed;
    Calls all;
  };
  const Case cases[] = {
      {{1, 2}, State::Complete, 2, {}, {{Status::SampleAdded, 1}, {Status::SampleAdded, 2}}},
      {{3, 1},
       State::Partial,
       1,
       {{Status::SampleEmpty, 3}},
       {{Status::SampleEmpty, 3}, {Status::SampleAdded, 1}}},
      {{2, 4, 5},
       State::Partial,
       1,
       {{Status::SampleNotReceived, 4}, {Status::SampleNotListed, 5}},
       {{Status::SampleAdded, 2}, {Status::SampleNotReceived, 4}, {Status::SampleNotListed, 5}}},
      {{5}, State::Empty, 0, {{Status::SampleNotListed, 5}}, {{Status::SampleNotListed, 5}}},
      {{3}, State::Empty, 0, {{Status::SampleEmpty, 3}}, {{Status::SampleEmpty, 3}}},
      {{}, State::Empty, 0, {}, {}},
  };
  for (const Case& c : cases) {
    SamplesDatabase database = filled({c.samples});
    EXPECT_EQ(database.state(0), State::NotBuilt);
    EXPECT_FALSE(database.hash_database(0));
    EXPECT_EQ(build(database, true, false), c.missed);
    EXPECT_EQ(build(database, true, true), c.all);
    EXPECT_EQ(database.state(0), c.state);
    ASSERT_TRUE(database.hash_database(0));
    EXPECT_EQ(database.hash_database(0)->sample_count(), c.indexed);
    database.build(true, nullptr, true);
    EXPECT_EQ(database.state(0), c.state) << "without a callback";
  }
}

TEST(SamplesDatabase, IndexesTheSamplesOfARuleInTheOrderGiven) {
  SamplesDatabase database = filled({{2, 1}, {1}});
  build(database, true, false);
  using Entries = std::vector<cv::audio::HashDatabaseEntry>;
  EXPECT_EQ(cv::test::entries_of(*database.hash_database(0), 100), (Entries{{2, 7}, {1, 0}}));
  EXPECT_EQ(cv::test::entries_of(*database.hash_database(1), 100), (Entries{{1, 0}}))
      << "each rule has its own index";
  EXPECT_NE(database.hash_database(0)->sample(1).metadata,
            database.hash_database(1)->sample(1).metadata);
}

TEST(SamplesDatabase, WithoutForceRebuildsOnlyWhatIsNotComplete) {
  SamplesDatabase database = filled({{1, 2}, {1, 4}});
  build(database, false, false);
  const auto complete = database.hash_database(0);
  const auto partial = database.hash_database(1);
  EXPECT_EQ(build(database, false, false), (Calls{{Status::SampleNotReceived, 4}}));
  EXPECT_EQ(database.hash_database(0), complete);
  EXPECT_FALSE(database.hash_database(1) == partial);
  database.set_payload(4, make_payload({{1, 1}}));
  build(database, false, false);
  EXPECT_EQ(database.state(1), State::Complete);
  build(database, true, false);
  EXPECT_FALSE(database.hash_database(0) == complete);
}

TEST(SamplesDatabase, BuildsACopyWithoutTouchingWhatReadersOfTheOriginalSee) {
  SamplesDatabase original = filled({{1, 4}});
  build(original, true, false);
  const auto published = original.hash_database(0);
  SamplesDatabase copy = original;
  copy.set_payload(4, make_payload({{55, 0}}));
  build(copy, true, false);
  EXPECT_EQ(copy.state(0), State::Complete);
  EXPECT_EQ(copy.payload(1), original.payload(1));
  EXPECT_EQ(copy.version(), 12u);
  EXPECT_EQ(original.hash_database(0), published);
  EXPECT_EQ(original.state(0), State::Partial);
  EXPECT_TRUE(original.hash_database(0)->entries(55).empty());
  EXPECT_FALSE(original.payload(4));
}

TEST(SamplesDatabase, KeepsItsTablesAsFilled) {
  SamplesDatabase database = filled({{1}, {2}});
  EXPECT_EQ(database.configuration_count(), 2u);
  EXPECT_EQ(database.payload_count(), 4u) << "announced samples count";
  EXPECT_TRUE(database.announced(4));
  EXPECT_FALSE(database.announced(5));
  EXPECT_FALSE(database.payload(5));
  EXPECT_FALSE(database.hash_database(77));
  EXPECT_EQ(database.state(77), State::NotBuilt);

  build(database, true, false);
  EXPECT_EQ(database.state(1), State::Complete);
  const auto metadata = make_metadata(1);
  database.add_configuration({1, {metadata, metadata, make_metadata(1)}});
  EXPECT_EQ(database.configuration_count(), 2u) << "a rule entered again replaces the first";
  EXPECT_EQ(database.state(1), State::NotBuilt);
  EXPECT_FALSE(database.hash_database(1));
  EXPECT_EQ(database.configurations().at(1).configuration.samples.size(), 2u)
      << "the same pointer counts once, another with its content does not";
  database.announce_payload(1);
  EXPECT_FALSE(database.payload(1));
  EXPECT_EQ(build(database, true, false), (Calls{{Status::SampleNotReceived, 1},
                                                 {Status::SampleNotReceived, 1},
                                                 {Status::SampleNotReceived, 1}}));
}

}  // namespace
