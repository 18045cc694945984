#include "medianode/dead_air_dispatcher.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using cv::rc_ptr;
using cv::audio::SegmentDetectionOptions;
using cv::mn::DeadAirConfig;
using Texts = std::vector<std::string>;

SegmentDetectionOptions options(uint64_t mark) {
  SegmentDetectionOptions made;
  made.sig_threshold = static_cast<double>(mark);
  made.activity_hits = mark;
  return made;
}

rc_ptr<DeadAirConfig> make_config(uint64_t version, uint64_t default_mark) {
  return rc_ptr<DeadAirConfig>(new DeadAirConfig(version, options(default_mark)));
}

TEST(DeadAirDispatcher, UnknownRulesHaveTheDefaultsAndVersionZero) {
  cv::test::LogCapture log;
  DeadAirConfig::counter = 0;
  cv::mn::DeadAirDispatcher dispatcher;
  uint64_t version = 9;

  dispatcher.on_dead_air_config(make_config(0, 5));
  EXPECT_EQ(dispatcher.get_options(1, version).activity_hits, 5u);
  EXPECT_EQ(version, 0u);

  auto config = make_config(7, 6);
  config->m_rules.emplace(1, options(50));
  dispatcher.on_dead_air_config(std::move(config));
  EXPECT_EQ(dispatcher.get_options(1, version).activity_hits, 50u);
  EXPECT_EQ(version, 7u);
  EXPECT_EQ(dispatcher.get_options(2, version).activity_hits, 6u);
  EXPECT_EQ(version, 0u);

  // Without rules it still takes the place of the one before; the one in between is never seen.
  dispatcher.on_dead_air_config(make_config(8, 7));
  dispatcher.on_dead_air_config(make_config(9, 8));
  EXPECT_EQ(dispatcher.get_options(1, version).activity_hits, 8u);
  EXPECT_EQ(version, 0u);

  const std::string tag = "SYSTEM dead_air_dispatcher DEADAIR_DISPATCHER: dead air configuration ";
  EXPECT_EQ(
      log.texts(),
      (Texts{tag + "(1) created", tag + "swapped", tag + "switched to (1)", tag + "(2) created",
             tag + "swapped", tag + "(1) destroyed", tag + "switched to (2)", tag + "(3) created",
             tag + "swapped", tag + "(4) created",
             "INFO dead_air_dispatcher DEADAIR_DISPATCHER: dead air configuration (3) wasn't "
             "switched; releasing",
             tag + "(3) destroyed", tag + "swapped", tag + "(2) destroyed",
             tag + "switched to (4)"}));
}

TEST(DeadAirDispatcher, BeforeTheFirstConfigurationTheDetectorsOwnDefaultsHold) {
  cv::mn::DeadAirDispatcher dispatcher;
  uint64_t version = 9;
  EXPECT_EQ(dispatcher.get_options(1, version).dev_threshold, 256.0);
  EXPECT_EQ(version, 0u);
}

}  // namespace
