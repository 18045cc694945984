#include "audio/audio_samples_database.h"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "audio/points.h"

namespace cv::audio {
namespace {

using State = SamplesDatabase::ConfiguraionState;
using Calls = std::vector<std::pair<SamplesDatabase::BuildStatus, unsigned>>;
using test::make_metadata;
using test::make_payload;

constexpr auto added = SamplesDatabase::BuildStatus::SampleAdded;
constexpr auto not_listed = SamplesDatabase::BuildStatus::SampleNotListed;
constexpr auto not_received = SamplesDatabase::BuildStatus::SampleNotReceived;
constexpr auto empty = SamplesDatabase::BuildStatus::SampleEmpty;

/// Samples 1 and 2 have points, 3 has none, 4 is announced only, 5 is unknown.
SamplesDatabase filled(const std::vector<uint32_t>& rule) {
  SamplesDatabase database(12);
  database.announce_payload(1);
  database.set_payload(1, make_payload({{100, 0}, {101, 1}}));
  database.set_payload(2, make_payload({{100, 7}}));
  database.set_payload(3, make_payload({}));
  database.announce_payload(4);
  SamplesConfiguration configuration{0, {}};
  for (const uint32_t id : rule) configuration.samples.push_back(make_metadata(id));
  database.add_configuration(configuration);
  return database;
}

Calls build(SamplesDatabase& database) {
  Calls calls;
  const auto note = [&](SamplesDatabase::BuildStatus status, unsigned id) {
    calls.push_back({status, id});
  };
  database.build(true, note, true);
  return calls;
}

TEST(SamplesDatabase, BuildsEachRuleAsFarAsItsSamplesAreThere) {
  struct Case {
    std::vector<uint32_t> samples;
    State state;
    Calls calls;
  };
  const Case cases[] = {
      {{1, 2}, State::Complete, {{added, 1}, {added, 2}}},
      {{3, 1}, State::Partial, {{empty, 3}, {added, 1}}},
      {{2, 4, 5}, State::Partial, {{added, 2}, {not_received, 4}, {not_listed, 5}}},
      {{}, State::Empty, {}},
  };
  for (const Case& c : cases) {
    SamplesDatabase database = filled(c.samples);
    EXPECT_FALSE(database.hash_database(0));
    EXPECT_EQ(build(database), c.calls);
    EXPECT_EQ(database.state(0), c.state);
  }
}

TEST(SamplesDatabase, BuildsACopyWithoutTouchingWhatReadersOfTheOriginalSee) {
  SamplesDatabase original = filled({1, 4});
  build(original);
  const auto published = original.hash_database(0);
  SamplesDatabase copy = original;
  copy.set_payload(4, make_payload({{55, 0}}));
  build(copy);
  EXPECT_EQ(copy.state(0), State::Complete);
  EXPECT_EQ(copy.payload(1), original.payload(1));
  EXPECT_EQ(original.hash_database(0), published);
  EXPECT_EQ(original.state(0), State::Partial);
}

}  // namespace
}  // namespace cv::audio
