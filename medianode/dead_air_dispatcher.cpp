#include "medianode/dead_air_dispatcher.h"

#include <utility>

#include "log/log.h"

namespace cv::mn {

DeadAirConfig::DeadAirConfig(uint64_t version, const audio::SegmentDetectionOptions& defaults)
    : m_id(++counter), m_version(version), m_defaults(defaults) {
  CV_LOG(SystemMessage) << "DEADAIR_DISPATCHER: dead air configuration (" << m_id << ") created";
}

DeadAirConfig::~DeadAirConfig() {
  CV_LOG(SystemMessage) << "DEADAIR_DISPATCHER: dead air configuration (" << m_id << ") destroyed";
}

void DeadAirDispatcher::on_dead_air_config(rc_ptr<DeadAirConfig> config) {
  update_config_exchanger(std::move(config));
  CV_LOG(SystemMessage) << "DEADAIR_DISPATCHER: dead air configuration swapped";
}

void DeadAirDispatcher::update_config_exchanger(rc_ptr<DeadAirConfig> config) {
  if (const auto untaken = m_exchanger.publish(std::move(config))) {
    CV_LOG(InfoMessage) << "DEADAIR_DISPATCHER: dead air configuration (" << untaken->m_id
                        << ") wasn't switched; releasing";
  }
}

const audio::SegmentDetectionOptions& DeadAirDispatcher::get_options(uint64_t rule_id,
                                                                     uint64_t& version) {
  rc_ptr<DeadAirConfig> newest = m_exchanger.take();
  if (newest && newest != m_current) {
    m_current = std::move(newest);
    CV_LOG(SystemMessage) << "DEADAIR_DISPATCHER: dead air configuration switched to ("
                          << m_current->m_id << ")";
  }
  version = 0;
  if (!m_current) {
    // The node publishes its defaults before it builds the pipeline; whoever did not gets the
    // detector's own.
    static const audio::SegmentDetectionOptions unconfigured;
    return unconfigured;
  }
  const auto rule = m_current->m_rules.find(rule_id);
  if (rule == m_current->m_rules.end()) return m_current->m_defaults;
  version = m_current->m_version;
  return rule->second;
}

}  // namespace cv::mn
