#include "audio/audio_samples_database.h"

#include <unordered_set>
#include <utility>

namespace cv::audio {

void SamplesDatabase::add_configuration(SamplesConfiguration configuration) {
  std::unordered_set<rc_ptr<SampleMetadata>> seen;
  std::erase_if(configuration.samples, [&seen](const rc_ptr<SampleMetadata>& metadata) {
    return !seen.insert(metadata).second;
  });
  Configuration& rule = m_configurations[configuration.id];
  rule = Configuration();
  rule.configuration = std::move(configuration);
}

void SamplesDatabase::announce_payload(uint32_t sample_id) { m_payloads[sample_id].reset(); }

void SamplesDatabase::set_payload(uint32_t sample_id, rc_ptr<HashSamplePayload> payload) {
  m_payloads[sample_id] = std::move(payload);
}

void SamplesDatabase::build(bool force, const BuildCallback& callback, bool report_added) {
  for (auto& [rule_id, rule] : m_configurations) {
    if (!force && rule.state == ConfiguraionState::Complete) continue;
    build_rule(rule, callback, report_added);
  }
}

void SamplesDatabase::build_rule(Configuration& rule, const BuildCallback& callback,
                                 bool report_added) const {
  ConfiguraionState state = ConfiguraionState::Complete;
  std::vector<HashSample> samples;
  samples.reserve(rule.configuration.samples.size());
  for (const rc_ptr<SampleMetadata>& metadata : rule.configuration.samples) {
    rc_ptr<HashSamplePayload> payload;
    const BuildStatus status = find_payload(metadata->id, payload);
    if (status == BuildStatus::SampleAdded) {
      samples.push_back({metadata, payload});
    } else {
      state = ConfiguraionState::Partial;
    }
    const bool report = report_added || status != BuildStatus::SampleAdded;
    if (report && callback) callback(status, metadata->id);
  }
  rule.database = rc_ptr<HashDatabase>(new HashDatabase(samples));
  rule.state = rule.database->empty() ? ConfiguraionState::Empty : state;
}

SamplesDatabase::BuildStatus SamplesDatabase::find_payload(
    uint32_t sample_id, rc_ptr<HashSamplePayload>& payload) const {
  const auto found = m_payloads.find(sample_id);
  if (found == m_payloads.end()) return BuildStatus::SampleNotListed;
  if (!found->second) return BuildStatus::SampleNotReceived;
  if (found->second->points.empty()) return BuildStatus::SampleEmpty;
  payload = found->second;
  return BuildStatus::SampleAdded;
}

SamplesDatabase::ConfiguraionState SamplesDatabase::state(uint64_t rule_id) const {
  const auto found = m_configurations.find(rule_id);
  return found == m_configurations.end() ? ConfiguraionState::NotBuilt : found->second.state;
}

rc_ptr<HashDatabase> SamplesDatabase::hash_database(uint64_t rule_id) const {
  const auto found = m_configurations.find(rule_id);
  return found == m_configurations.end() ? nullptr : found->second.database;
}

rc_ptr<HashSamplePayload> SamplesDatabase::payload(uint32_t sample_id) const {
  const auto found = m_payloads.find(sample_id);
  return found == m_payloads.end() ? nullptr : found->second;
}

}  // namespace cv::audio
