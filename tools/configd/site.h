// A site's configuration as it stands: recordings, rules, and the versions under which nodes are told.
//
// Invariants:
// 1. snapshot() changes only together with its versions, and only after the state file holds them.
// 2. What cannot be used (a bad rules file, an unreadable recording, a full disk) leaves the snapshot
//    as it was, with a log line that says so.
// One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/configd/configuration.h"
#include "tools/configd/file_watcher.h"
#include "tools/configd/rules_file.h"
#include "tools/configd/sample_store.h"
#include "tools/configd/sample_thinning.h"
#include "tools/configd/state_file.h"

namespace cv::tools {

/// What requests are answered from. Packets are kept with it, so that a list that is asked for by an
/// older configuration's ids stays consistent with the entries.
struct Snapshot {
  uint64_t sample_version = 0;
  uint64_t dead_air_version = 0;
  std::string sample_data_json = "[]";
  std::string dead_air_data_json = "[]";
  /// The packets that the entries name, by sample id.
  std::map<uint32_t, std::vector<unsigned char>> packets;
};

struct SiteSettings {
  std::string sample_directory;
  std::string rules_path;
  unsigned drop_common = 0;
};

class Site {
 public:
  /// (recordings read, recordings to read), while many are read.
  using Progress = std::function<void(std::size_t done, std::size_t total)>;

  Site(SiteSettings settings, StateFile state, SampleStore::ReadPacket read);

  /// The first look. False, with the reason in `error`, when there is nothing to start with: no
  /// readable directory, no valid rules, a state that cannot be kept.
  bool start(const Progress& progress, std::string& error);
  /// Looks for changes; true when nodes have to be told of new versions.
  bool look();

  const Snapshot& snapshot() const { return m_snapshot; }

 private:
  void apply_recordings(const FileWatcher::Changes& changes, const Progress& progress);
  bool apply_rules(std::string& error);
  bool refresh(std::string& error);
  void log_complaints(const std::vector<std::string>& complaints);
  Snapshot make_snapshot(const Configuration& configuration, const Packets& packets,
                         const std::map<std::string, uint32_t>& ids) const;

  SiteSettings m_settings;
  StateFile m_state;
  SampleStore m_store;
  FileWatcher m_watcher;
  Rules m_rules;
  Snapshot m_snapshot;
  /// What is in m_state is not on disk, and so not in the snapshot either.
  bool m_refresh_pending = false;
  // What the log said last: a state that lasts is a line, not a line a second.
  std::string m_last_look_error;
  std::string m_last_refresh_error;
  std::vector<std::string> m_complaints;
};

}  // namespace cv::tools
