// Hash to the places it occurs at, in contiguous memory.
//
// The occurrences of a hash are in the order the points were given, and in runs, as long as one sample
// goes on: who votes looks a sample up once a run. A run is a few words next to each other: the
// position of the sample, the number of offsets, the offsets. Nothing changes once it is built.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "audio/audio_hash_generator.h"

namespace cv::audio {

/// One occurrence of a hash.
struct HashDatabaseEntry {
  uint32_t sample_id;
  uint32_t offset;

  bool operator==(const HashDatabaseEntry&) const = default;
};

/// Goes from run to run of one hash.
class HashRunCursor {
 public:
  static constexpr std::size_t header_words = 2;

  HashRunCursor() = default;
  HashRunCursor(const uint32_t* words, const uint32_t* end) : m_words(words), m_end(end) {}

  /// False behind the last run; nothing below may be called then.
  explicit operator bool() const { return m_words != m_end; }
  /// Of the sample in the database.
  uint32_t position() const { return m_words[0]; }
  /// At least 1.
  uint32_t count() const { return m_words[1]; }
  /// `count()` frames within the sample.
  const uint32_t* offsets() const { return m_words + header_words; }
  void next() { m_words += header_words + count(); }

  bool operator==(const HashRunCursor&) const = default;

 private:
  const uint32_t* m_words = nullptr;
  const uint32_t* m_end = nullptr;
};

/// The occurrences of one hash: a view, valid as long as the index.
class HashEntries {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = HashDatabaseEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = value_type;

    Iterator() = default;
    Iterator(HashRunCursor run, const uint32_t* sample_ids)
        : m_run(run), m_sample_ids(sample_ids) {}

    HashDatabaseEntry operator*() const {
      return {m_sample_ids[m_run.position()], m_run.offsets()[m_in_run]};
    }
    Iterator& operator++() {
      if (++m_in_run == m_run.count()) {
        m_run.next();
        m_in_run = 0;
      }
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Iterator&) const = default;

   private:
    HashRunCursor m_run;
    const uint32_t* m_sample_ids = nullptr;
    uint32_t m_in_run = 0;
  };

  HashEntries() = default;
  HashEntries(const uint32_t* words, const uint32_t* end, const uint32_t* sample_ids)
      : m_words(words), m_end(end), m_sample_ids(sample_ids) {}

  bool empty() const { return m_words == m_end; }
  /// Goes through the runs.
  std::size_t size() const {
    std::size_t size = 0;
    for (HashRunCursor run = runs(); run; run.next()) size += run.count();
    return size;
  }
  HashRunCursor runs() const { return {m_words, m_end}; }
  Iterator begin() const { return {runs(), m_sample_ids}; }
  Iterator end() const { return {HashRunCursor(m_end, m_end), m_sample_ids}; }

 private:
  const uint32_t* m_words = nullptr;
  const uint32_t* m_end = nullptr;
  const uint32_t* m_sample_ids = nullptr;
};

class HashIndex {
 public:
  /// The points of the sample at `position`.
  struct Part {
    uint32_t position;
    std::span<const HashPoint> points;
  };

  /// No hashes.
  HashIndex() = default;
  /// `sample_ids` by position.
  HashIndex(std::span<const Part> parts, std::vector<uint32_t> sample_ids);

  /// Empty when the hash does not occur.
  HashEntries entries(uint32_t hash) const {
    if (m_slots.empty()) return {};
    const Slot& slot = m_slots[slot_of(hash)];
    const uint32_t* words = m_words.data() + slot.begin;
    return {words, words + slot.words, m_sample_ids.data()};
  }
  /// Number of distinct hashes.
  std::size_t hash_count() const { return m_hash_count; }
  std::size_t entry_count() const { return m_entry_count; }

 private:
  // The runs of a hash are the words from m_words[begin] on.
  struct Slot {
    uint32_t hash = 0;
    uint32_t words = 0;  // 0: a free slot
    std::size_t begin = 0;
  };

  std::size_t slot_of(uint32_t hash) const {
    // Neighbouring hashes are common, so they are spread first. (Fibonacci hashing: D. E. Knuth, The
    // Art of Computer Programming 3, 6.4.)
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = (hash * uint64_t{0x9E3779B97F4A7C15} >> 32) & mask;
    while (m_slots[slot].words != 0 && m_slots[slot].hash != hash) slot = (slot + 1) & mask;
    return slot;
  }
  std::vector<uint32_t> group_by_hash(std::span<const Part> parts);
  Slot& enter(uint32_t hash);
  void grow();
  void write_runs(std::span<const Part> parts, std::span<const uint32_t> groups);

  std::vector<Slot> m_slots;  // open addressing, a power of two, at most half full
  std::vector<uint32_t> m_words;
  std::vector<uint32_t> m_sample_ids;
  std::size_t m_hash_count = 0;
  std::size_t m_entry_count = 0;
};

}  // namespace cv::audio
