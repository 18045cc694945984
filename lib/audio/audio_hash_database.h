// What one rule's calls are matched against: an inverted index from hash to the places it occurs
// at, and the samples those places belong to.
//
// Invariants:
// 1. A HashDatabase never changes after construction; any number of threads read it without a lock.
// 2. The entries of a hash are in the order the samples were given and, within a sample, in the
// order
//    of its points. Entries of one sample therefore stand together.
// 3. Every entry's sample is present, with metadata and payload.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "audio/audio_hash_generator.h"
#include "core/reference_countable.h"

namespace cv::audio {

/// One sample as one rule sees it.
struct SampleMetadata : public ReferenceCountable {
  static constexpr uint32_t no_id = 0xFFFFFFFF;

  uint32_t id = no_id;
  /// Lowest score that counts as a recognition.
  double threshold = 3.0;
  std::string name;
  /// JSON text copied verbatim into the sample's detection reports.
  std::string event_object;
};

/// The fingerprint of one sample, in the order received. A point's offset is the frame within the
/// sample; nothing bounds or orders offsets.
struct HashSamplePayload : public ReferenceCountable {
  std::vector<HashPoint> points;
};

struct HashSample {
  rc_ptr<SampleMetadata> metadata;
  rc_ptr<HashSamplePayload> payload;
};

/// One occurrence of a hash.
struct HashDatabaseEntry {
  uint32_t sample_id;
  uint32_t offset;

  bool operator==(const HashDatabaseEntry&) const = default;
};

class HashDatabase : public ReferenceCountable {
 public:
  using Entries = std::span<const HashDatabaseEntry>;

  /// No samples, no hashes.
  HashDatabase() = default;
  /// Indexes `samples` in the order given; each has metadata and payload. A sample identifier given
  /// again replaces the metadata and payload of the one before, whose entries stay.
  explicit HashDatabase(const std::vector<HashSample>& samples);

  /// Every occurrence of `hash`; `m_empty_entry` when there is none. Valid as long as the database.
  Entries entries(uint32_t hash) const;
  /// `m_empty_sample` when the identifier is unknown.
  const HashSample& sample(uint32_t sample_id) const;

  bool empty() const { return m_entries.empty(); }
  std::size_t sample_count() const { return m_samples.size(); }
  /// Number of distinct hashes.
  std::size_t hash_count() const { return m_hash_count; }
  std::size_t entry_count() const { return m_entries.size(); }

  static const Entries m_empty_entry;
  static const HashSample m_empty_sample;

 private:
  // The occurrences of one hash are m_entries[begin] to m_entries[begin + count - 1].
  struct Run {
    uint32_t hash = 0;
    uint32_t count = 0;  // 0: a free slot
    std::size_t begin = 0;
  };

  void build_index(const std::vector<HashSample>& samples);
  std::size_t slot_of(uint32_t hash) const;

  std::unordered_map<uint32_t, HashSample> m_samples;
  std::vector<Run> m_index;  // open addressing, a power of two, at most half full
  std::vector<HashDatabaseEntry> m_entries;
  std::size_t m_hash_count = 0;
};

}  // namespace cv::audio
