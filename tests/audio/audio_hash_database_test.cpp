#include "audio/audio_hash_database.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <vector>

#include "audio/hash_samples.h"

namespace {

using cv::audio::HashDatabase;
using cv::audio::HashDatabaseEntry;
using cv::audio::HashPoint;
using cv::test::entries_of;
using cv::test::make_sample;
using Entries = std::vector<HashDatabaseEntry>;

TEST(HashDatabase, KeepsTheOrderOfSamplesAndPoints) {
  const HashDatabase database({make_sample(9, {{7, 5}, {8, 1}, {7, 2}}),
                               make_sample(3, {{7, 0}, {7, 0}, {0xFFFFFFFF, 0xFFFFFFFF}})});
  EXPECT_EQ(entries_of(database, 7), (Entries{{9, 5}, {9, 2}, {3, 0}, {3, 0}}));
  EXPECT_EQ(entries_of(database, 8), (Entries{{9, 1}}));
  EXPECT_EQ(entries_of(database, 0xFFFFFFFF), (Entries{{3, 0xFFFFFFFF}}));
  EXPECT_EQ(database.hash_count(), 3u);
  EXPECT_EQ(database.entry_count(), 6u);
  EXPECT_EQ(database.sample_count(), 2u);
  EXPECT_EQ(database.sample(3).payload->points.size(), 3u);
}

TEST(HashDatabase, AnswersWithEmptyObjectsForWhatItDoesNotHold) {
  const HashDatabase filled({make_sample(1, {{7, 0}})});
  const HashDatabase without_samples(std::vector<cv::audio::HashSample>{});
  const HashDatabase fresh;
  for (const HashDatabase* database : {&filled, &without_samples, &fresh}) {
    for (const uint32_t absent : {0u, 6u, 0xFFFFFFFFu}) {
      EXPECT_TRUE(database->entries(absent).empty());
      EXPECT_EQ(&database->sample(absent), &HashDatabase::m_empty_sample);
    }
    EXPECT_EQ(database->empty(), database != &filled);
  }
  EXPECT_FALSE(HashDatabase::m_empty_sample.metadata);
  EXPECT_FALSE(HashDatabase::m_empty_sample.payload);
  EXPECT_EQ(filled.hash_count(), 1u);
}

TEST(HashDatabase, LetsALaterSampleReplaceAnEarlierOfItsIdentifier) {
  const auto first = make_sample(4, {{1, 10}});
  const auto second = make_sample(4, {{1, 20}});
  const HashDatabase database({first, second});
  EXPECT_EQ(database.sample(4).metadata, second.metadata);
  EXPECT_EQ(database.sample(4).payload, second.payload);
  EXPECT_EQ(entries_of(database, 1), (Entries{{4, 10}, {4, 20}}));
}

TEST(HashDatabase, FindsEveryHashOfALargeDatabaseAndNoOther) {
  std::mt19937 random(11);
  std::map<uint32_t, Entries> expected;
  std::vector<cv::audio::HashSample> samples;
  for (uint32_t id = 0; id < 50; ++id) {
    std::vector<HashPoint> points;
    for (uint32_t offset = 0; offset < 400; ++offset) {
      // Steps of 2^12 are hashes alike in their low bits.
      const uint32_t hash = id % 2 == 0 ? (random() % 4096) << 12 : random() % (1 << 24);
      points.push_back({hash, offset});
      expected[hash].push_back({id, offset});
    }
    samples.push_back(make_sample(id, points));
  }
  const HashDatabase database(samples);
  EXPECT_EQ(database.hash_count(), expected.size());
  for (const auto& [hash, list] : expected) ASSERT_EQ(entries_of(database, hash), list) << hash;
  for (int round = 0; round < 20000; ++round) {
    const uint32_t hash = random() % (1 << 24);
    EXPECT_EQ(database.entries(hash).empty(), expected.count(hash) == 0);
  }
}

}  // namespace
