#include "medianode/report_manager.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "medianode/call_fixture.h"
#include "medianode/udp_receiver.h"
#include "support/log_capture.h"

namespace {

using cv::rc_ptr;
using cv::mn::Configuration;
using cv::mn::Report;
using cv::test::make_session;
using cv::test::UdpReceiver;

rc_ptr<Report> activity(uint16_t session_port) {
  return new cv::mn::AudioActivityReport(make_session(session_port), 100, 0);
}

const std::string activity_text =
    "{\"type\": \"audio_activity\", \"session_uuid\": \"00112233-4455-6677-8899-aabbccddeeff\", "
    "\"session_timestamp\": 1635500000, \"call_side\": \"originator\", \"offset_ms\": 1.6}";

TEST(ReportManager, SendsAndLogsWhatTheConfigurationSays) {
  using Settings = std::vector<std::pair<std::string, std::string>>;
  struct {
    Settings settings;  // "*" stands for the service's port
    bool session_has_address;
    bool to_session, to_service, logged;
  } const table[] = {
      {{}, true, true, false, true},
      {{}, false, false, false, true},
      {{{"report_transfer_host", "127.0.0.1:*"}}, true, true, true, true},
      {{{"report_transfer_host", "127.0.0.1:*"}}, false, false, true, true},
      {{{"report_transfer_enabled", "service"}}, true, false, false, true},
      {{{"report_transfer_host", "127.0.0.1:*"}, {"report_transfer_enabled", "session"}},
       true,
       true,
       false,
       true},
      {{{"report_transfer_host", "127.0.0.1:*"}, {"report_transfer_enabled", "service"}},
       true,
       false,
       true,
       true},
      {{{"report_transfer_host", "127.0.0.1:*"}, {"report_transfer_enabled", "false"}},
       true,
       false,
       false,
       true},
      {{{"report_transfer_host", "127.0.0.1:*"}, {"report_transfer_disabled", "audio_activity"}},
       true,
       false,
       false,
       true},
      {{{"report_transfer_disabled", "sample_detection"}}, true, true, false, true},
      {{{"report_logging_enabled", "false"}}, true, true, false, false},
  };
  for (const auto& row : table) {
    std::string label;
    UdpReceiver session, service;
    rc_ptr<Configuration> configuration(new Configuration);
    for (auto [key, value] : row.settings) {
      label += key + "=" + value + " ";
      if (const auto star = value.find('*'); star != value.npos) {
        value.replace(star, 1, std::to_string(service.port()));
      }
      std::stringstream error;
      ASSERT_EQ(configuration->set_value(key, value, error), 0);
    }
    SCOPED_TRACE(label);
    cv::test::LogCapture log;
    cv::mn::ReportManagerStatistic statistic;
    cv::mn::ReportManager manager(configuration, &statistic);
    manager.on_queue_read(activity(row.session_has_address ? session.port() : 0));
    using Received = std::vector<std::string>;
    EXPECT_EQ(session.received(), row.to_session ? Received{activity_text} : Received{});
    EXPECT_EQ(service.received(), row.to_service ? Received{activity_text} : Received{});
    EXPECT_EQ(log.has(cv::log::Level::SYSTEM, "REPORT_MANAGER: sent: 0, report: " + activity_text),
              row.logged);
    EXPECT_EQ(statistic.audio_activity_reports.get(), 1u) << "sent or not";
  }
}

TEST(ReportManager, ReportsWithNothingToSayAreNeitherSentNorLogged) {
  UdpReceiver session;
  cv::test::LogCapture log;
  cv::mn::ReportManager manager(rc_ptr<Configuration>(new Configuration));
  manager.on_queue_read(nullptr);
  manager.on_queue_read(new Report(make_session(session.port())));
  manager.on_queue_read(
      new cv::mn::AudioDetectorSessionReport(make_session(session.port()), 7, nullptr, nullptr));
  EXPECT_EQ(manager.report_statistic().empty_report_errors.get(), 0u);
  manager.on_queue_read(new cv::mn::AudioActivityReport({}, 100, 0));
  EXPECT_EQ(manager.report_statistic().empty_report_errors.get(), 1u);
  EXPECT_TRUE(session.received().empty());
  EXPECT_TRUE(log.texts().empty());
}

TEST(ReportManager, AReportTooLongForADatagramIsLoggedAndTheNextOneSent) {
  UdpReceiver session;
  cv::test::LogCapture log;
  cv::mn::ReportManager manager(rc_ptr<Configuration>(new Configuration));
  const auto sample = cv::test::make_sample(1, std::string(70000, 'x'), "{}");
  manager.on_queue_read(new cv::mn::AudioDetectorStreamReport(
      make_session(session.port()), 7, cv::audio::Match{sample, 1, 0, 0, 1}, 0));
  EXPECT_TRUE(log.has_containing("failed to send a data"));
  EXPECT_EQ(log.count_containing("REPORT_MANAGER: sent: 0"), 1u);
  manager.on_queue_read(activity(session.port()));
  EXPECT_EQ(session.received(), std::vector<std::string>{activity_text});
}

TEST(ReportManager, DropsWhenFullAndStillSendsWhatIsQueuedWhenStopped) {
  constexpr std::size_t capacity = 10000;
  rc_ptr<Configuration> configuration(new Configuration);
  std::stringstream error;
  configuration->set_value("report_logging_enabled", "false", error);
  UdpReceiver session;
  cv::test::LogCapture log;
  cv::mn::ReportManager manager(configuration);
  EXPECT_EQ(manager.stop(), 0);
  EXPECT_TRUE(log.texts().empty()) << "not running: nothing to stop";

  // All but one go nowhere, so that the one is not lost in a full socket buffer.
  for (std::size_t i = 0; i + 1 < capacity; ++i) ASSERT_TRUE(manager.push(activity(0)));
  EXPECT_TRUE(manager.push(activity(session.port())));
  EXPECT_FALSE(manager.push(activity(session.port())));
  EXPECT_EQ(manager.start(), 0);
  EXPECT_EQ(manager.stop(), 0);

  const auto& counters = manager.report_statistic();
  EXPECT_EQ(counters.audio_activity_reports.get(), capacity);
  EXPECT_EQ(counters.passed.get(), capacity);
  EXPECT_EQ(counters.dropped.get(), 1u);
  EXPECT_EQ(counters.elements.get(), 0u);
  EXPECT_EQ(session.received(), std::vector<std::string>{activity_text});
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0].text.find("ANALYSIS_REPORT: reporting thread started with id "), 0u);
  EXPECT_EQ(log.texts()[1], "SYSTEM report_manager ANALYSIS_REPORT: reporting thread stopped");
}

}  // namespace
