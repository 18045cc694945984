#include "medianode/report_manager.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "medianode/call_fixture.h"
#include "support/log_capture.h"
#include "support/udp_receiver.h"

namespace {

using cv::rc_ptr;
using cv::mn::Configuration;
using cv::mn::Report;
using cv::mn::ReportManager;
using cv::test::make_session;
using cv::test::UdpReceiver;
using Texts = std::vector<std::string>;

rc_ptr<Report> activity(uint16_t session_port) {
  return new cv::mn::AudioActivityReport(make_session(session_port), 100, 0);
}

const std::string activity_text =
    "{\"type\": \"audio_activity\", \"session_uuid\": \"00112233-4455-6677-8899-aabbccddeeff\", "
    "\"session_timestamp\": 1635500000, \"call_side\": \"originator\", \"offset_ms\": 1.6}";

rc_ptr<Configuration> configured(const std::string& args) {
  rc_ptr<Configuration> configuration(new Configuration);
  EXPECT_TRUE(configuration->parse_args(args)) << args;
  return configuration;
}

TEST(ReportManager, SendsAndLogsWhatTheConfigurationSays) {
  const std::string host = "report_transfer_host=127.0.0.1:*";  // the service's port for the star
  struct {
    std::string args;
    bool to_session, to_service, logged;
  } const table[] = {
      {"", true, false, true},
      {host, true, true, true},
      {"report_transfer_enabled=false," + host, false, true, true},
      {host + ",report_transfer_enabled=session", true, false, true},
      {host + ",report_transfer_enabled=service", false, true, true},
      {host + ",report_transfer_enabled=false", false, false, true},
      {host + ",report_transfer_disabled=audio_activity", false, false, true},
      {"report_transfer_disabled=sample_detection", true, false, true},
      {"report_logging_enabled=false", true, false, false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.args);
    cv::test::LogCapture log;
    UdpReceiver session, service;
    std::string args = row.args;
    if (const auto star = args.find('*'); star != args.npos) {
      args.replace(star, 1, std::to_string(service.port()));
    }
    cv::mn::ReportManagerStatistic statistic;
    ReportManager manager(configured(args), &statistic);
    manager.on_queue_read(activity(session.port()));
    EXPECT_EQ(session.texts(), row.to_session ? Texts{activity_text} : Texts{});
    EXPECT_EQ(service.texts(), row.to_service ? Texts{activity_text} : Texts{});
    EXPECT_EQ(log.has(cv::log::Level::SYSTEM, "REPORT_MANAGER: sent: 0, report: " + activity_text),
              row.logged);
    EXPECT_EQ(statistic.audio_activity_reports.get(), 1u) << "sent or not";
  }
}

TEST(ReportManager, WhatCannotBeSentHoldsNothingUp) {
  UdpReceiver session;
  ReportManager manager(configured(""));
  cv::test::LogCapture log;
  // Without a call, with nothing to say, too long for a datagram, nowhere to go.
  manager.on_queue_read(new cv::mn::AudioActivityReport({}, 100, 0));
  EXPECT_EQ(manager.report_statistic().empty_report_errors.get(), 1u);
  manager.on_queue_read(
      new cv::mn::AudioDetectorSessionReport(make_session(session.port()), 7, nullptr, nullptr));
  EXPECT_EQ(manager.report_statistic().empty_report_errors.get(), 1u);
  EXPECT_TRUE(log.texts().empty());
  const auto sample = cv::test::make_sample(1, std::string(70000, 'x'), "{}");
  manager.on_queue_read(new cv::mn::AudioDetectorStreamReport(
      make_session(session.port()), 7, cv::audio::Match{sample, 1, 0, 0, 1}, 0));
  EXPECT_EQ(log.count_containing("REPORT_MANAGER: sent: 0"), 1u);

  manager.on_queue_read(activity(0));
  manager.on_queue_read(activity(session.port()));
  EXPECT_EQ(session.texts(), Texts{activity_text});
  EXPECT_EQ(log.count_containing("failed to send a data"), 1u) << "the one that is too long";
}

TEST(ReportManager, DropsWhatFindsItsQueueFullAndDealsWithTheRestBeforeItStops) {
  ReportManager manager(configured(""));
  const rc_ptr<Report> without_call(new cv::mn::AudioActivityReport({}, 100, 0));
  for (int i = 0; i < 10000; ++i) ASSERT_TRUE(manager.push(without_call));
  EXPECT_FALSE(manager.push(without_call));
  EXPECT_EQ(manager.report_statistic().dropped.get(), 1u);
  EXPECT_EQ(manager.stop(), 0) << "not started yet";
  EXPECT_EQ(manager.start(), 0);
  EXPECT_EQ(manager.stop(), 0);
  EXPECT_EQ(manager.report_statistic().empty_report_errors.get(), 10000u);
}

}  // namespace
