#include "medianode/statistic_service.h"

#include <gtest/gtest.h>
#include <limits>
#include <sstream>

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
  const auto count_on = [](uint64_t from, auto&... counters) { (counters.set(from++), ...); };
  auto& s = service.m_stream_manager;
  count_on(1, s.sessions, s.zombies, s.existing_index_errors, s.allocation_errors,
           s.unknown_index_errors, s.lost_packets, s.sequence_break_errors, s.audit_calls,
           s.audit_executions, s.streams_allocation_errors);
  auto& r = service.m_report_manager;
  count_on(21, r.elements, r.passed, r.dropped, r.empty_report_errors, r.audio_activity_reports,
           r.detection_reports, r.sample_match_reports);
  auto& p = service.m_packet_reader;
  count_on(31, p.elements, p.passed, p.dropped, p.empty_checks, p.idle_hits, p.min_length,
           p.max_length, p.failed_allocation, p.bad_marker, p.bad_version, p.corrupted_size,
           p.unknown_type, p.start_packets, p.term_packets, p.data_packets, p.ctrl_packets);
  p.elements.set(std::numeric_limits<uint64_t>::max());
}

TEST(StatisticService, WritesEveryCounterBesideItsLabel) {
  StatisticService service;
  service.m_port = 5000;
  service.m_port_known = true;
  fill(service);
  std::ostringstream block;
  service.print(block);
  EXPECT_EQ(block.str(), expected_block);
}

}  // namespace
