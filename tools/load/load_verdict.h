// Reports against what the calls of a load have to give: what is missing, what is wrong, how late.
//
// One thread. Pure: the caller brings the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/load/call_script.h"
#include "tools/load/load_plan.h"

namespace cv::tools {

/// Of a set of durations.
struct Delays {
  double median_ms = 0;
  double p95_ms = 0;
  double p99_ms = 0;
  double largest_ms = 0;
};

struct Verdict {
  uint64_t calls = 0;
  uint64_t expected = 0;  // findings
  uint64_t reported = 0;
  uint64_t missing = 0;
  uint64_t wrong = 0;    // reports of what is not there, or of what was reported already
  uint64_t foreign = 0;  // datagrams that are no finding of this run
  uint64_t prompts = 0;  // planted recordings that were reported
  Delays after_start;    // of those: from the recording's first sample to its report
  Delays after_packet;   // of all findings: from the packet that decides to the report
  std::vector<std::string> examples;  // of what is missing or wrong, a line each; not all of them
};

class LoadJudge {
 public:
  /// Borrows plan and scripts. `start_us`: tick 0 on the clock of take().
  LoadJudge(const LoadPlan& plan, const std::vector<CallScript>& scripts, uint64_t run,
            int64_t start_us);

  /// One datagram, as it arrived.
  void take(std::string_view report, int64_t now_us);

  uint64_t reported() const { return m_verdict.reported; }
  /// Of the calls as they were when the run ended at `end_tick`.
  Verdict verdict(int64_t end_tick) const;

 private:
  bool find_call(std::string_view uuid, uint32_t& call) const;
  void judge(uint32_t call, const Finding& reported, int64_t now_us);
  void count_call(uint32_t call, uint32_t blocks, Verdict& out) const;

  const LoadPlan& m_plan;
  const std::vector<CallScript>& m_scripts;
  const uint64_t m_run;
  const int64_t m_start_us;
  std::vector<std::vector<bool>> m_seen;  // by call, then by finding of its script
  Verdict m_verdict;
  std::vector<double> m_after_start_ms;
  std::vector<double> m_after_packet_ms;
};

}  // namespace cv::tools
