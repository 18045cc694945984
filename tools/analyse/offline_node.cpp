#include "tools/analyse/offline_node.h"

#include <sstream>
#include <utility>

#include "tools/configd/event_texts.h"
#include "utils/utils_json.h"

namespace cv::tools {

/// Shows the media time of the packet at hand.
class OfflineNode::MediaClock final : public IClock {
 public:
  int64_t now_us() const override { return m_now_us; }
  void set(int64_t now_us) { m_now_us = now_us; }

 private:
  int64_t m_now_us = 0;
};

/// Serialises at once, where the node's thread would, and sends nothing.
class OfflineNode::Reports final : public mn::ReportManager {
 public:
  explicit Reports(const rc_ptr<mn::Configuration>& settings)
      : ReportManager(settings), m_settings(settings) {}

  void tell(const OnReport* on_report) { m_on_report = on_report; }

  bool push(rc_ptr<mn::Report> report) override {
    if (m_on_report == nullptr || !report->transfer_enabled(*m_settings)) return true;
    std::ostringstream text;
    report->serialize(text, static_cast<mn::ReportManagerStatistic&>(*m_statistic));
    const std::string line = std::move(text).str();
    if (!line.empty()) (*m_on_report)(*report, line);
    return true;
  }

 private:
  const rc_ptr<mn::Configuration> m_settings;
  const OnReport* m_on_report = nullptr;
};

OfflineNode::OfflineNode(rc_ptr<mn::Configuration> settings, const Snapshot& site)
    : m_settings(std::move(settings)),
      m_clock(std::make_unique<MediaClock>()),
      m_databases(*m_clock),
      m_reports(std::make_unique<Reports>(m_settings)),
      m_pipeline(m_settings, m_databases, m_dead_airs, *m_reports, m_statistic, *m_clock) {
  tell(site);
}

OfflineNode::~OfflineNode() = default;

/// As the node is told at its start.
void OfflineNode::tell(const Snapshot& site) {
  using mn::ControlEvents;
  m_dead_airs.on_dead_air_config(rc_ptr<mn::DeadAirConfig>(
      new mn::DeadAirConfig(0, mn::default_segment_detection(*m_settings))));
  ControlEvents events(m_settings, m_databases, m_dead_airs, {},
                       [](const std::string&, const std::string&) {});
  const auto take = [&](void (ControlEvents::*handler)(const std::string&, void*), const char* name,
                        const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.data(), json.size());  // with the dispatcher's own options
    (events.*handler)(name, &document);
  };
  take(&ControlEvents::event_on_deadair_configuration, event::dead_air_configuration,
       configuration_event(event::dead_air_configuration, site.dead_air_version,
                           site.dead_air_data_json));
  take(
      &ControlEvents::event_on_sample_configuration, event::sample_configuration,
      configuration_event(event::sample_configuration, site.sample_version, site.sample_data_json));
  for (const auto& [id, packet] : site.packets) {
    take(&ControlEvents::event_on_sample_list, event::sample_list, sample_event(id, packet));
  }
}

RuleInForce OfflineNode::rule(uint64_t rule_id) {
  RuleInForce rule;
  rule.database = m_databases.get_hash_database(rule_id, rule.version);
  uint64_t dead_air_version = 0;
  rule.activity = m_dead_airs.get_options(rule_id, dead_air_version);
  return rule;
}

bool OfflineNode::run(CallSchedule& call, const OnReport& on_report,
                      const std::function<bool(int64_t media_us)>& go_on) {
  m_reports->tell(&on_report);
  media::Datagram datagram;
  int64_t media_us = 0;
  while (call.next(media_us, datagram)) {
    m_clock->set(media_us);
    deliver(datagram);
    if (!go_on(media_us)) call.cut_short();
  }
  m_reports->tell(nullptr);
  return !datagram.empty();
}

/// As the packet reader hands packets on. Not through it: it would trace every call to syslog.
void OfflineNode::deliver(media::Datagram& datagram) {
  auto& manager = m_pipeline.manager();
  switch (reinterpret_cast<const media::PacketHeader*>(datagram.data())->type) {
    case media::PACKET_START:
      return manager.on_packet(*reinterpret_cast<media::StartPacket*>(datagram.data()));
    case media::PACKET_DATA:
      return manager.on_packet(*reinterpret_cast<media::DataPacket*>(datagram.data()));
    case media::PACKET_TERM:
      return manager.on_packet(*reinterpret_cast<media::TerminatePacket*>(datagram.data()));
    default:
      break;  // a schedule holds no others
  }
}

}  // namespace cv::tools
