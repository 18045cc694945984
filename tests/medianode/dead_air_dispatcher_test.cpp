#include "medianode/dead_air_dispatcher.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using cv::rc_ptr;
using cv::audio::SegmentDetectionOptions;
using cv::mn::DeadAirConfig;

SegmentDetectionOptions options(uint64_t activity_hits) {
  SegmentDetectionOptions made;
  made.activity_hits = activity_hits;
  return made;
}

TEST(DeadAirDispatcher, UnknownRulesHaveTheDefaultsAndVersionZero) {
  cv::test::LogCapture log;
  DeadAirConfig::counter = 0;
  cv::mn::DeadAirDispatcher dispatcher;
  uint64_t version = 9;
  EXPECT_EQ(dispatcher.get_options(1, version).dev_threshold, 256.0) << "the detector's own";
  EXPECT_EQ(version, 0u);

  rc_ptr<DeadAirConfig> config(new DeadAirConfig(7, options(6)));
  config->m_rules.emplace(1, options(50));
  dispatcher.on_dead_air_config(std::move(config));
  EXPECT_EQ(dispatcher.get_options(1, version).activity_hits, 50u);
  EXPECT_EQ(version, 7u);
  EXPECT_EQ(dispatcher.get_options(2, version).activity_hits, 6u);
  EXPECT_EQ(version, 0u);

  // Without rules it still takes the place of the one before; the one in between is never seen.
  for (const uint64_t number : {8, 9}) {
    dispatcher.on_dead_air_config(new DeadAirConfig(number, options(number)));
  }
  EXPECT_EQ(dispatcher.get_options(1, version).activity_hits, 9u);
  EXPECT_EQ(version, 0u);
  EXPECT_EQ(log.tagged("DEADAIR_DISPATCHER: dead air configuration "),
            (std::vector<std::string>{
                "SYSTEM (1) created", "SYSTEM swapped", "SYSTEM switched to (1)",
                "SYSTEM (2) created", "SYSTEM swapped", "SYSTEM (3) created",
                "INFO (2) wasn't switched; releasing", "SYSTEM (2) destroyed", "SYSTEM swapped",
                "SYSTEM (1) destroyed", "SYSTEM switched to (3)"}));
}

}  // namespace
