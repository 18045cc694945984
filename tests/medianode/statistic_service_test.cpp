#include "medianode/statistic_service.h"

#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <syslog.h>

#include "support/eventually.h"
#include "support/log_capture.h"
#include "support/syslog_capture.h"

namespace {

using cv::mn::StatisticService;

constexpr const char* expected_block =
    R"(********************* corvanthmedianode:5000 statistic *********************
*                                                                          *
* session number.............................: 1                           *
* session number (zombie)....................: 2                           *
* session audit executions number............: 9                           *
* session allocation errors number...........: 4                           *
* session streams allocation errors number...: 10                          *
* session existing index errors number.......: 3                           *
* session unknown index errors number........: 5                           *
* session sequence break errors number.......: 7                           *
* session lost packets number................: 6                           *
*                                                                          *
***************************** report statistic *****************************
*                                                                          *
* report 'audio activity' type number........: 25                          *
* report 'detection' type number.............: 26                          *
* report 'sample match' type number..........: 27                          *
* report queue elements number...............: 21                          *
* report queue passed elements number........: 22                          *
* report queue dropped elements number.......: 23                          *
* report queue empty report errors number....: 24                          *
*                                                                          *
**************************** packets statistic *****************************
*                                                                          *
* packet queue elements number...............: 18446744073709551615        *
* packet queue passed elements number........: 32                          *
* packet queue dropped elements number.......: 33                          *
* packet queue idle hits number..............: 35                          *
* packet dropped  by min length..............: 36                          *
* packet dropped  by max length..............: 37                          *
* packet dropped  by failed allocation.......: 38                          *
* packet rejected by bad marker..............: 39                          *
* packet rejected by version.................: 40                          *
* packet rejected by corrupted size..........: 41                          *
* packet rejected by unknown type............: 42                          *
* packet 'start' type number.................: 43                          *
* packet 'term'  type number.................: 44                          *
* packet 'data'  type number.................: 45                          *
* packet 'ctrl'  type number.................: 46                          *
*                                                                          *
****************************************************************************)";

/// A different number in every counter.
void fill(StatisticService& service) {
  auto& sessions = service.m_stream_manager;
  uint64_t value = 1;
  for (auto* counter :
       {&sessions.sessions, &sessions.zombies, &sessions.existing_index_errors,
        &sessions.allocation_errors, &sessions.unknown_index_errors, &sessions.lost_packets,
        &sessions.sequence_break_errors, &sessions.audit_calls, &sessions.audit_executions,
        &sessions.streams_allocation_errors}) {
    counter->set(value++);
  }
  auto& reports = service.m_report_manager;
  value = 21;
  for (auto* counter : {&reports.elements, &reports.passed, &reports.dropped,
                        &reports.empty_report_errors, &reports.audio_activity_reports,
                        &reports.detection_reports, &reports.sample_match_reports}) {
    counter->set(value++);
  }
  auto& packets = service.m_packet_reader;
  value = 31;
  for (auto* counter : {&packets.elements, &packets.passed, &packets.dropped, &packets.empty_checks,
                        &packets.idle_hits, &packets.min_length, &packets.max_length,
                        &packets.failed_allocation, &packets.bad_marker, &packets.bad_version,
                        &packets.corrupted_size, &packets.unknown_type, &packets.start_packets,
                        &packets.term_packets, &packets.data_packets, &packets.ctrl_packets}) {
    counter->set(value++);
  }
  packets.elements.set(std::numeric_limits<uint64_t>::max());
}

TEST(StatisticService, PrintsTheWholeBlock) {
  StatisticService service;
  fill(service);
  service.m_port = 5000;
  service.m_port_known = true;
  std::ostringstream out;
  service.print(out);
  EXPECT_EQ(out.str(), expected_block);

  service.m_port_known = false;
  std::ostringstream portless;
  service.print(portless);
  EXPECT_TRUE(portless.str().starts_with(std::string(23, '*') + " corvanthmedianode statistic " +
                                         std::string(24, '*') + "\n"));
}

TEST(StatisticService, FramesTitlesAndLinesUpTo72Characters) {
  const auto header = [](std::size_t length) {
    std::ostringstream out;
    StatisticService::print_section_header(out, std::string(length, 't'));
    return out.str();
  };
  const auto line = [](std::size_t length) {
    std::ostringstream out;
    StatisticService::print_section_line(out, std::string(length, 't'));
    return out.str();
  };
  const auto text = [](std::size_t length) { return std::string(length, 't'); };
  EXPECT_EQ(header(71), "* " + text(71) + " **\n");
  EXPECT_EQ(header(72), "* " + text(72) + " *\n");
  EXPECT_EQ(header(73), "* " + text(73) + "\n");
  EXPECT_EQ(line(71), "* " + text(71) + "  *\n");
  EXPECT_EQ(line(72), "* " + text(72) + " *\n");
  EXPECT_EQ(line(73), "* " + text(73) + "\n");
}

TEST(StatisticService, WritesTheFirstBlockAtOnceAndLogsItsThread) {
  for (bool enabled : {true, false}) {
    cv::test::LogCapture log(cv::log::Level::ERROR);
    cv::test::SyslogCapture syslog;
    StatisticService service;
    fill(service);
    service.m_port = 5000;
    service.m_port_known = true;
    service.m_logging_enabled = enabled;
    EXPECT_EQ(service.stop(), 0) << "not started: says nothing";
    ASSERT_EQ(service.start(), 0);
    EXPECT_TRUE(cv::test::eventually(
        [&] { return !log.lines().empty() && (!enabled || !syslog.lines().empty()); }));
    EXPECT_EQ(service.stop(), 0);

    const auto lines = log.texts();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].starts_with("SYSTEM statistic_service STATISTIC_SERVICE: thread ["));
    EXPECT_TRUE(lines[0].ends_with("] started"));
    EXPECT_EQ(lines[1], "SYSTEM statistic_service STATISTIC_SERVICE: thread [" +
                            std::to_string(cv::kernel_thread_id()) + "] stopped");
    const auto blocks = syslog.lines();
    ASSERT_EQ(blocks.size(), enabled ? 1u : 0u);
    if (!enabled) continue;
    EXPECT_EQ(blocks[0].facility, LOG_LOCAL0);
    EXPECT_EQ(blocks[0].severity, LOG_NOTICE);
    EXPECT_TRUE(blocks[0].text.starts_with("SYSTEM  | statistic_service:"));
    EXPECT_TRUE(blocks[0].text.ends_with(" | \n" + std::string(expected_block) + "\n"));
  }
}

}  // namespace
