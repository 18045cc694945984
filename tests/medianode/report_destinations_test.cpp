#include "medianode/report_destinations.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "medianode/call_fixture.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/pipeline.h"

namespace {

cv::net::AddressList list(const std::string& text) {
  cv::net::AddressList addresses;
  std::string error;
  EXPECT_TRUE(text.empty() || addresses.parse(text, error)) << error;
  return addresses;
}

// The call's own address is 127.0.0.1.
TEST(ReportDestinations, TakeTheReportAddressFromCallsThatMayNotNameIt) {
  const struct {
    const char* allowed;
    uint16_t named, left;  // ports
    uint64_t refused;
  } cases[] = {
      {"", 9000, 9000, 0},
      {"127.0.0.0/8", 9000, 9000, 0},
      {"10.0.0.0/8", 9000, 0, 1},
      {"10.0.0.0/8", 0, 0, 0},
  };
  for (const auto& c : cases) {
    cv::test::FakeClock clock;
    cv::mn::ReportDestinations destinations(list(c.allowed), clock);
    const auto session = cv::test::make_session(c.named);
    destinations.on_session_created(session);
    EXPECT_EQ(session->m_report_address.port, htons(c.left)) << c.allowed;
    EXPECT_EQ(session->m_report_address.addr.sin_port, htons(c.left));
    EXPECT_EQ(destinations.refused(), c.refused);
  }
}

TEST(ReportDestinations, AreAskedAboutEveryCallOfThePipelineAndSaidEveryFiveSeconds) {
  cv::test::LogCapture log;
  cv::rc_ptr<cv::mn::Configuration> configuration(new cv::mn::Configuration);
  configuration->report_destinations = list("10.0.0.0/8");
  {
    cv::test::Pipeline pipeline(configuration);
    const cv::media::StartFields fields{.features = cv::media::features_activity_detection,
                                        .report_addr = inet_addr("192.168.0.1"),
                                        .report_port = htons(9000)};
    for (uint8_t number = 1; number <= 5; ++number) {
      if (number == 4) pipeline.clock.advance_seconds(5);
      pipeline.send(cv::test::CallPackets(number).start(fields));
    }
    pipeline.clock.advance_seconds(5);
    pipeline.send(cv::test::CallPackets(1).terminate());
    EXPECT_EQ(log.tagged("REPORT_DESTINATIONS: ").size(), 3U) << "no refused call has followed";
  }
  const std::string behind =
      ") calls named a report address that is not allowed, the last [192.168.0.1]; (";
  EXPECT_EQ(log.tagged("REPORT_DESTINATIONS: "),
            (std::vector<std::string>{"WARNING (1" + behind + "1) in all",
                                      "WARNING (3" + behind + "4) in all",
                                      "WARNING (1" + behind + "5) in all"}));
}

}  // namespace
