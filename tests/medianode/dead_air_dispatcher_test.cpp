#include "medianode/dead_air_dispatcher.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

using cv::rc_ptr;
using cv::audio::SegmentDetectionOptions;
using cv::mn::DeadAirConfig;
using cv::mn::DeadAirDispatcher;

TEST(DeadAirDispatcher, HandsOverTheNewestConfigurationWithTheNextLookUp) {
  cv::test::LogCapture log;
  DeadAirConfig::counter = 0;
  {
    DeadAirDispatcher dispatcher;
    const auto publish = [&](uint64_t version, uint64_t hits) {
      SegmentDetectionOptions options;
      options.activity_hits = hits;
      rc_ptr<DeadAirConfig> config(new DeadAirConfig(version, options));
      options.activity_hits = hits + 1;
      config->m_rules.emplace(5, options);
      dispatcher.on_dead_air_config(config);
    };
    // Rule 5 is configured, rule 6 is not.
    const auto expect = [&](uint64_t version, uint64_t hits) {
      for (const uint64_t rule : {5, 6, 5}) {
        uint64_t found = 77;
        EXPECT_EQ(dispatcher.get_options(rule, found).activity_hits, rule == 5 ? hits + 1 : hits);
        EXPECT_EQ(found, rule == 5 ? version : 0);
      }
    };
    publish(0, 10);
    publish(3, 20);
    expect(3, 20);
    publish(2, 30);
    expect(2, 30);
  }
  EXPECT_EQ(log.tagged("DEADAIR_DISPATCHER: dead air configuration "),
            (std::vector<std::string>{
                "SYSTEM (1) created", "SYSTEM swapped", "SYSTEM (2) created",
                "INFO (1) wasn't switched; releasing", "SYSTEM (1) destroyed", "SYSTEM swapped",
                "SYSTEM switched to (2)", "SYSTEM (3) created", "SYSTEM swapped",
                "SYSTEM (2) destroyed", "SYSTEM switched to (3)", "SYSTEM (3) destroyed"}));
}

}  // namespace
