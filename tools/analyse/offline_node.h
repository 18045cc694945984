// The node's analysis without its threads, sockets and Kafka: a call's packets in, its reports out.
//
// Nothing is analysed here. The events that configd would send go through the node's own handlers, the
// packets that a source would send through its own pipeline, and time is the packets' media time; so
// the lines are those of a node, byte for byte. Threads: one at a time; each thread has its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "medianode/configuration.h"
#include "medianode/control_events.h"
#include "medianode/media_pipeline.h"
#include "tools/configd/site.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {

/// What a rule looks for, and by which terms.
struct RuleInForce {
  rc_ptr<audio::HashDatabase> database;  // empty: the rule looks for nothing
  uint64_t version = 0;
  audio::SegmentDetectionOptions activity;
};

class OfflineNode {
 public:
  /// `line`, without its end, is what a receiver gets; the call is still there.
  using OnReport = std::function<void(const mn::Report& report, const std::string& line)>;

  /// A node with these settings that was told all of `site`. Where its reports would go has no meaning;
  /// those of a kind that its settings keep back are not told.
  OfflineNode(rc_ptr<mn::Configuration> settings, const Snapshot& site);
  ~OfflineNode();

  /// For every frame of the calls to come; not owned.
  void watch(mn::SpectrumGeneratorListener& listener) {
    m_pipeline.add_spectrum_listener(&listener);
  }
  RuleInForce rule(uint64_t rule_id);

  /// A whole call, from START to TERM. Never runs longer than the call has packets; `go_on` is asked
  /// before each, with its media time, and ends the call there when it says no. False: a packet could
  /// not be built.
  bool run(CallSchedule& call, const OnReport& on_report,
           const std::function<bool(int64_t media_us)>& go_on);

 private:
  class MediaClock;
  class Reports;

  void tell(const Snapshot& site);
  void deliver(media::Datagram& datagram);

  rc_ptr<mn::Configuration> m_settings;
  std::unique_ptr<MediaClock> m_clock;
  mn::DatabaseDispatcher m_databases;
  mn::DeadAirDispatcher m_dead_airs;
  std::unique_ptr<Reports> m_reports;
  media::StreamManagerStatistic m_statistic;
  mn::MediaPipeline m_pipeline;
};

}  // namespace cv::tools
