// What the configuration manager remembers between its runs: the versions it has given out and the
// identity of every recording it has announced.
//
// Invariants:
// 1. A version never falls and is never given to two contents. Without a state file the first one
//    is the time in seconds, so that even a lost file does not bring old numbers back.
// 2. One sample id stands for one content: nodes keep a sample's data by its id and fetch only ids
//    they lack. A recording whose content changes therefore changes its id. Ids are made from the
//    content, so a lost state file brings the same ids back.
// 3. What nodes are told is on disk first: save() comes before any announcement.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cv::tools {

class StateFile {
 public:
  struct Configuration {
    uint64_t version = 0;  // 0: nothing was ever announced
    uint64_t content = 0;  // CRC-64 of the announced text
  };
  struct Sample {
    uint32_t id = 0;
    uint64_t content = 0;  // CRC-64 of the sample packet

    bool operator==(const Sample&) const = default;
  };

  /// The state kept at `path`; a missing file is a fresh state whose versions start at
  /// `first_version`. Empty, with the reason in `error`, when the file is there but makes no sense:
  /// starting afresh then is the operator's decision.
  static std::optional<StateFile> open(const std::string& path, uint64_t first_version,
                                       std::string& error);

  /// The id of a recording with this content: the one it has, or a new one when the content is new.
  uint32_t sample_id(const std::string& name, std::string_view packet);

  /// Raises the version when `content` differs from what was announced last; true when it did.
  bool update_samples(std::string_view content) { return update(m_samples_announced, content); }
  bool update_dead_air(std::string_view content) { return update(m_dead_air_announced, content); }

  /// The hashes that samples were announced without, ascending: a choice that stays while it is a good
  /// one (hash_selection.h).
  const std::vector<uint32_t>& dropped_hashes() const { return m_dropped_hashes; }
  void set_dropped_hashes(std::vector<uint32_t> hashes);

  uint64_t sample_version() const { return m_samples_announced.version; }
  uint64_t dead_air_version() const { return m_dead_air_announced.version; }

  /// From now on save() writes nothing: for who only wants to know what nodes would be told.
  void keep_in_memory() { m_in_memory = true; }

  /// Writes the file if anything changed since it was last written.
  bool save(std::string& error);

 private:
  StateFile(std::string path, uint64_t first_version)
      : m_path(std::move(path)), m_first_version(first_version) {}

  bool load(std::string_view text, std::string& error);
  bool update(Configuration& announced, std::string_view content);
  bool id_taken(uint32_t id, uint64_t content) const;
  std::string to_json() const;

  std::string m_path;
  uint64_t m_first_version;
  Configuration m_samples_announced;
  Configuration m_dead_air_announced;
  std::map<std::string, Sample> m_samples;
  std::vector<uint32_t> m_dropped_hashes;
  bool m_changed = false;
  bool m_in_memory = false;
};

}  // namespace cv::tools
