#include "audio/audio_hash_database.h"

#include <gtest/gtest.h>
#include <vector>

#include "audio/points.h"

namespace cv::audio {
namespace {

using Entries = std::vector<HashDatabaseEntry>;
using test::make_sample;

Entries entries_of(const HashDatabase& database, uint32_t hash) {
  const HashDatabase::Entries entries = database.entries(hash);
  return {entries.begin(), entries.end()};
}

TEST(HashDatabase, KeepsTheOrderOfSamplesAndPointsAndTheLastSampleOfAnIdentifier) {
  const auto replaced = make_sample(9, {{7, 5}, {8, 1}, {7, 2}});
  const auto second = make_sample(3, {{7, 0}, {0xFFFFFFFF, 0xFFFFFFFF}});
  const auto later = make_sample(9, {{8, 20}});
  const HashDatabase database({replaced, second, later});
  EXPECT_EQ(entries_of(database, 7), (Entries{{9, 5}, {9, 2}, {3, 0}}));
  EXPECT_EQ(entries_of(database, 8), (Entries{{9, 1}, {9, 20}}));
  EXPECT_EQ(entries_of(database, 0xFFFFFFFF), (Entries{{3, 0xFFFFFFFF}}));
  EXPECT_EQ(database.sample(9).payload, later.payload);
  EXPECT_EQ(database.entry_count(), 6u);
}

TEST(HashDatabase, AnswersWithEmptyObjectsForWhatItDoesNotHold) {
  test::Points points;  // as many as the smallest table has room for
  for (uint32_t hash = 7; hash < 7 + 64; ++hash) points.push_back({hash, 0});
  const HashDatabase filled({make_sample(1, points)});
  for (const uint32_t absent : {0u, 6u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(filled.entries(absent).empty());
    EXPECT_EQ(&filled.sample(absent), &HashDatabase::m_empty_sample);
    EXPECT_TRUE(HashDatabase().entries(absent).empty());
  }
}

}  // namespace
}  // namespace cv::audio
