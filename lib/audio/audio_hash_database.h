// What one rule's calls are matched against: an inverted index from hash to the places it occurs
// at, and the samples those places belong to.
//
// Invariants:
// 1. A HashDatabase never changes after construction, nor do the metadata and payloads in it; any
//    number of threads read it without a lock.
// 2. The entries of a hash are in the order the samples were given and, within a sample, in the order
//    of its points.
// 3. Every entry's sample is present, with metadata and payload.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "audio/audio_hash_generator.h"
#include "audio/audio_hash_index.h"
#include "audio/audio_vote_layout.h"
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

class HashDatabase : public ReferenceCountable {
 public:
  using Entries = HashEntries;
  using Payloads = std::vector<rc_ptr<HashSamplePayload>>;

  /// No samples, no hashes.
  HashDatabase() = default;
  /// Indexes `samples` in the order given; each has metadata and payload. A sample identifier given
  /// again replaces the metadata and payload of the one before, whose entries stay.
  explicit HashDatabase(const std::vector<HashSample>& samples);

  /// Every occurrence of `hash`; `m_empty_entry` when there is none. Valid as long as the database.
  Entries entries(uint32_t hash) const { return m_index.entries(hash); }
  /// `m_empty_sample` when the identifier is unknown.
  const HashSample& sample(uint32_t sample_id) const;

  /// By position: samples are numbered from 0 in the order their identifiers were first given.
  const HashSample& sample_at(uint32_t position) const { return m_samples[position]; }
  /// All that was indexed for the sample at `position`: more than one when it was given again.
  const Payloads& payloads_at(uint32_t position) const { return m_payloads[position]; }
  /// Where streams keep their votes for the sample at each position.
  const VoteLayout& layout() const { return m_layout; }

  bool empty() const { return entry_count() == 0; }
  std::size_t sample_count() const { return m_samples.size(); }
  /// Number of distinct hashes.
  std::size_t hash_count() const { return m_index.hash_count(); }
  std::size_t entry_count() const { return m_index.entry_count(); }

  static const Entries m_empty_entry;
  static const HashSample m_empty_sample;

 private:
  std::vector<HashIndex::Part> number_samples(const std::vector<HashSample>& samples);
  std::vector<uint32_t> sample_ids() const;
  VoteLayout make_layout() const;

  std::unordered_map<uint32_t, uint32_t> m_positions;  // by identifier
  std::vector<HashSample> m_samples;
  std::vector<Payloads> m_payloads;
  HashIndex m_index;
  VoteLayout m_layout;
};

}  // namespace cv::audio
