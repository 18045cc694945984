#include "tools/configd/site.h"

#include <algorithm>
#include <utility>

#include "log/log.h"
#include "tools/configd/event_texts.h"

namespace cv::tools {

namespace {

/// Empty when a node can receive the event.
std::string size_complaint(const char* what, const std::string& event) {
  const std::size_t bytes = event_body(event).size();
  if (bytes <= max_body_bytes) return {};
  return std::string(what) + " takes " + std::to_string(bytes) + " bytes of the " +
         std::to_string(max_body_bytes) + " that a Kafka message may have";
}

}  // namespace

Site::Site(SiteSettings settings, StateFile state, SampleStore::ReadPacket read)
    : m_settings(std::move(settings)),
      m_state(std::move(state)),
      m_store(std::move(read)),
      m_watcher(m_settings.sample_directory, m_settings.rules_path) {}

bool Site::start(const Progress& progress, std::string& error) {
  const FileWatcher::Changes changes = m_watcher.look();
  if (!changes.error.empty()) {
    error = changes.error;
    return false;
  }
  if (!apply_rules(error)) return false;
  apply_recordings(changes, progress);
  return refresh(error);
}

bool Site::look() {
  const FileWatcher::Changes changes = m_watcher.look();
  if (changes.error != m_last_look_error && !changes.error.empty()) {
    CV_LOG(ErrorMessage) << "CONFIGD: " << changes.error << "; everything stays as it is";
  }
  m_last_look_error = changes.error;
  if (!changes.any() && !m_refresh_pending) return false;
  std::string error;
  if (changes.rules_changed && !apply_rules(error)) {
    CV_LOG(ErrorMessage) << "CONFIGD: " << error << "; the previous rules stay in force";
  }
  apply_recordings(changes, nullptr);
  const auto versions = [this] {
    return std::pair(m_snapshot.sample_version, m_snapshot.dead_air_version);
  };
  const auto before = versions();
  const bool refreshed = refresh(error);
  if (!refreshed && error != m_last_refresh_error) {
    CV_LOG(ErrorMessage) << "CONFIGD: " << error << "; the previous configuration stays in force";
  }
  m_last_refresh_error = error;
  return versions() != before;
}

void Site::apply_recordings(const FileWatcher::Changes& changes, const Progress& progress) {
  for (const std::string& name : changes.removed) {
    CV_LOG(SystemMessage) << "CONFIGD: recording [" << name << "] is gone";
    m_store.remove(name);
  }
  std::size_t done = 0;
  for (const std::string& name : changes.changed) {
    const bool loaded = m_store.load(name);
    if (progress) {
      progress(++done, changes.changed.size());
    } else if (loaded) {
      CV_LOG(SystemMessage) << "CONFIGD: recording [" << name << "] read";
    }
  }
}

bool Site::apply_rules(std::string& error) {
  auto rules = read_rules(m_settings.rules_path, error);
  if (!rules) return false;
  m_rules = std::move(*rules);
  return true;
}

bool Site::refresh(std::string& error) {
  std::map<std::string, uint32_t> ids;
  ThinnedSamples samples =
      thin_samples(m_store.packets(), m_rules, m_settings.drop_common, m_state);
  for (const auto& [name, packet] : samples.packets) {
    ids[name] = m_state.sample_id(name, bytes_of(packet));
  }
  const Configuration configuration = resolve(m_rules, ids);
  std::vector<std::string> complaints = std::move(samples.complaints);
  for (const Complaint& complaint : configuration.complaints)
    complaints.push_back(complaint.line());
  log_complaints(complaints);
  Snapshot next = make_snapshot(configuration, samples.packets, ids);
  error = size_complaint(
      "the sample configuration",
      configuration_event(event::sample_configuration, UINT64_MAX, next.sample_data_json));
  if (error.empty()) {
    error = size_complaint(
        "the dead-air configuration",
        configuration_event(event::dead_air_configuration, UINT64_MAX, next.dead_air_data_json));
  }
  if (!error.empty()) return false;
  m_state.update_samples(next.sample_data_json);
  m_state.update_dead_air(next.dead_air_data_json);
  next.sample_version = m_state.sample_version();
  next.dead_air_version = m_state.dead_air_version();
  // A version that is not on disk could be given out again after a restart.
  m_refresh_pending = true;
  if (!m_state.save(error)) return false;
  m_refresh_pending = false;
  m_snapshot = std::move(next);
  return true;
}

void Site::log_complaints(const std::vector<std::string>& complaints) {
  for (const std::string& complaint : complaints) {
    // What was said once and still holds is not said again with every change of something else.
    if (std::find(m_complaints.begin(), m_complaints.end(), complaint) == m_complaints.end()) {
      CV_LOG(WarningMessage) << "CONFIGD: " << complaint;
    }
  }
  m_complaints = complaints;
}

Snapshot Site::make_snapshot(const Configuration& configuration, const Packets& packets,
                             const std::map<std::string, uint32_t>& ids) const {
  Snapshot snapshot;
  snapshot.sample_data_json = sample_data_json(configuration.samples);
  snapshot.dead_air_data_json = dead_air_data_json(configuration.dead_airs);
  std::set<uint32_t> used;
  for (const SampleEntry& entry : configuration.samples) used.insert(entry.sample_id);
  for (const auto& [name, packet] : packets) {
    if (used.count(ids.at(name))) snapshot.packets[ids.at(name)] = packet;
  }
  return snapshot;
}

}  // namespace cv::tools
