// Notices when the recordings or the rules change, by looking at them again and again.
//
// Looking costs a stat() a file, a few milliseconds for a thousand. It was preferred to inotify, which
// sees nothing on network file systems, needs a watch for every folder and can overflow: none of that
// buys anything when seconds are soon enough.
//
// Invariant: a change is told once, and only when two looks in a row saw the same: a file that is
// being copied changes from look to look. The first look tells everything at once. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace cv::tools {

/// What tells one content of a file from the next. The change time moves also when a file is replaced
/// by an older one or becomes readable.
struct FileSignature {
  int64_t modified_ns = 0;
  int64_t changed_ns = 0;
  uint64_t size_bytes = 0;
  uint64_t inode = 0;

  bool operator==(const FileSignature&) const = default;
};

class FileWatcher {
 public:
  /// Recordings are the files below `directory`, at any depth, whose extension is that of an audio
  /// format; names that begin with a dot, of files and folders, are passed over, and links to folders
  /// are not followed.
  FileWatcher(std::string directory, std::string rules_path)
      : m_directory(std::move(directory)), m_rules_path(std::move(rules_path)) {}

  struct Changes {
    std::vector<std::string> changed;  // names below the directory, new ones too
    std::vector<std::string> removed;
    bool rules_changed = false;
    /// Why the directory could not be looked at; recordings are then neither changed nor removed.
    std::string error;

    bool any() const { return !changed.empty() || !removed.empty() || rules_changed; }
  };

  Changes look();

 private:
  struct Tracked {
    std::optional<FileSignature> told;
    std::optional<FileSignature> seen;
  };

  bool settle(Tracked& file, const std::optional<FileSignature>& now) const;
  void look_at_recordings(Changes& changes);

  std::string m_directory;
  std::string m_rules_path;
  std::map<std::string, Tracked> m_recordings;
  Tracked m_rules;
  bool m_first_look = true;
};

}  // namespace cv::tools
