#include "tools/configd/file_watcher.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>

namespace cv::tools {

namespace {

namespace fs = std::filesystem;

// What libsndfile opens by itself; headerless formats would be guessed wrong.
constexpr std::array<std::string_view, 16> audio_extensions = {
    ".wav",  ".wave", ".flac", ".ogg", ".oga", ".opus", ".mp3", ".aif",
    ".aiff", ".au",   ".snd",  ".caf", ".w64", ".rf64", ".voc", ".nist"};

bool is_recording_name(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::find(audio_extensions.begin(), audio_extensions.end(), extension) !=
         audio_extensions.end();
}

int64_t to_ns(const timespec& time) {
  return int64_t{time.tv_sec} * 1000000000 + int64_t{time.tv_nsec};
}

std::optional<FileSignature> signature_of(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return FileSignature{to_ns(status.st_mtim), to_ns(status.st_ctim),
                       static_cast<uint64_t>(status.st_size), status.st_ino};
}

/// `error` names the folder that cannot be read.
std::map<std::string, FileSignature> recordings_below(const std::string& directory,
                                                      std::string& error) {
  std::map<std::string, FileSignature> found;
  std::error_code code;
  fs::path path = directory;
  fs::recursive_directory_iterator walk(directory, code);
  for (; !code && walk != fs::recursive_directory_iterator(); walk.increment(code)) {
    path = walk->path();
    if (path.filename().string().front() == '.') {
      walk.disable_recursion_pending();
      continue;
    }
    if (!is_recording_name(path)) continue;
    if (const auto signature = signature_of(path.string())) {
      found[path.lexically_relative(directory).generic_string()] = *signature;
    }
  }
  if (code) error = path.string() + ": " + code.message();
  return found;
}

}  // namespace

bool FileWatcher::settle(Tracked& file, const std::optional<FileSignature>& now) const {
  const bool settled = m_first_look || now == file.seen;
  file.seen = now;
  if (!settled || now == file.told) return false;
  file.told = now;
  return true;
}

void FileWatcher::look_at_recordings(Changes& changes) {
  const auto found = recordings_below(m_directory, changes.error);
  if (!changes.error.empty()) return;
  for (const auto& [name, signature] : found) {
    if (settle(m_recordings[name], signature)) changes.changed.push_back(name);
  }
  for (auto it = m_recordings.begin(); it != m_recordings.end();) {
    const bool gone = !found.count(it->first) && settle(it->second, std::nullopt);
    if (gone) changes.removed.push_back(it->first);
    it = gone ? m_recordings.erase(it) : std::next(it);
  }
}

FileWatcher::Changes FileWatcher::look() {
  Changes changes;
  look_at_recordings(changes);
  changes.rules_changed = settle(m_rules, signature_of(m_rules_path));
  m_first_look = false;
  return changes;
}

}  // namespace cv::tools
