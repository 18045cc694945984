#include "medianode/configuration.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

using cv::mn::Configuration;

TEST(NodeConfiguration, RefusesWhatItCannotUse) {
  const struct {
    const char *name, *value;
    int expected;
    const char* reason;
  } cases[] = {
      {"report_transfer_disabled", "sample_detection|x", -255, "unknown value: x"},
      {"report_transfer_host", "127.0.0.1:x", -1, ""},
      {"audio_detection_drift", "4", -255, "[audio_detection_drift] must not exceed [3]"},
      {"audio_detection_drift", "-1", -1, ""},
      {"segment_detection_default_deviation_threshold", "1e999", -1, ""},
      {"media_receive_buffer_bytes", "1073741824", -255,
       "[media_receive_buffer_bytes] must not exceed [1073741823]"},
      {"media_sources", "10.0.0.1,here", -255, "[here] is no IPv4 address or network"},
      {"report_destinations", "10.0.0.1/8", -255,
       "[10.0.0.1/8] has bits behind its network, which is [10.0.0.0/8]"},
  };
  for (const auto& c : cases) {
    Configuration config;
    std::stringstream reason;
    EXPECT_EQ(config.set_value(c.name, c.value, reason), c.expected) << c.name << "=" << c.value;
    EXPECT_EQ(reason.str(), c.reason);
    EXPECT_EQ(config.audio_detection_drift, 1);
  }
}

TEST(NodeConfiguration, EachKeySetsItsOwnField) {
  cv::test::LogCapture log;
  Configuration config;
  EXPECT_TRUE(config.parse_args(
      "report_logging_enabled=false,report_on_call_termination=true,audio_detection_drift=3,"
      "segment_detection_default_signal_threshold=2.5,"
      "segment_detection_default_deviation_threshold=128,"
      "segment_detection_default_power_threshold=0.25,segment_detection_default_activity_hits=9,"
      "segment_detection_default_silence_hits=18446744073709551615,port=5060,log_level=DEBUG,"
      "report_transfer_host=10.0.0.5:9000,,10.0.0.6:1,statistic_logging_enabled=false,"
      "session_limit=5000,media_sources=10.1.0.0/16,,10.2.0.1,report_destinations=10.3.0.1"));
  EXPECT_FALSE(config.report_logging_enabled);
  EXPECT_TRUE(config.report_on_call_termination);
  EXPECT_EQ(config.audio_detection_drift, 3);
  EXPECT_EQ(config.segment_detection_default_signal_threshold, 2.5);
  EXPECT_EQ(config.segment_detection_default_deviation_threshold, 128.0);
  EXPECT_EQ(config.segment_detection_default_power_threshold, 0.25);
  EXPECT_EQ(config.segment_detection_default_activity_hits, 9u);
  EXPECT_EQ(config.segment_detection_default_silence_hits, UINT64_MAX);
  EXPECT_EQ(config.port, 5060);
  EXPECT_EQ(config.log_level, cv::log::Level::DEBUG);
  EXPECT_EQ(config.report_transfer_host.addr.sin_addr.s_addr, inet_addr("10.0.0.5"));
  EXPECT_EQ(config.report_transfer_host.addr.sin_port, htons(9000)) << "the first of the hosts";
  EXPECT_FALSE(config.statistic_logging_enabled);
  EXPECT_EQ(config.session_limit, 5000u);
  EXPECT_TRUE(config.media_sources.contains(inet_addr("10.2.0.1")));
  EXPECT_TRUE(config.report_destinations.contains(inet_addr("10.3.0.1")));
}

}  // namespace
