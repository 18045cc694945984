// Hash to the places it occurs at, in contiguous memory. The occurrences of a hash are in the order the
// points were given. Nothing changes once it is built.
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

/// The same with the sample's position in its database.
struct HashIndexEntry {
  uint32_t position;
  uint32_t offset;
};

/// The occurrences of one hash: a view, valid as long as the index.
class HashEntries {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = HashDatabaseEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = value_type;

    Iterator(const HashIndexEntry* entry, const uint32_t* sample_ids)
        : m_entry(entry), m_sample_ids(sample_ids) {}

    HashDatabaseEntry operator*() const {
      return {m_sample_ids[m_entry->position], m_entry->offset};
    }
    Iterator& operator++() {
      ++m_entry;
      return *this;
    }
    Iterator operator++(int) { return {m_entry++, m_sample_ids}; }
    bool operator==(const Iterator& other) const { return m_entry == other.m_entry; }

   private:
    const HashIndexEntry* m_entry;
    const uint32_t* m_sample_ids;
  };

  HashEntries() = default;
  HashEntries(std::span<const HashIndexEntry> entries, const uint32_t* sample_ids)
      : m_entries(entries), m_sample_ids(sample_ids) {}

  bool empty() const { return m_entries.empty(); }
  std::size_t size() const { return m_entries.size(); }
  Iterator begin() const { return {m_entries.data(), m_sample_ids}; }
  Iterator end() const { return {m_entries.data() + m_entries.size(), m_sample_ids}; }
  std::span<const HashIndexEntry> by_position() const { return m_entries; }

 private:
  std::span<const HashIndexEntry> m_entries;
  const uint32_t* m_sample_ids = nullptr;  // by position
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
    return {{m_entries.data() + slot.begin, slot.count}, m_sample_ids.data()};
  }
  /// Number of distinct hashes.
  std::size_t hash_count() const { return m_hash_count; }
  std::size_t entry_count() const { return m_entries.size(); }

 private:
  // The occurrences of a hash are those from m_entries[begin] on.
  struct Slot {
    uint32_t hash = 0;
    uint32_t count = 0;  // 0: a free slot
    std::size_t begin = 0;
  };

  std::size_t slot_of(uint32_t hash) const {
    // Neighbouring hashes are common, so they are spread first. (Fibonacci hashing: D. E. Knuth, The
    // Art of Computer Programming 3, 6.4.)
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = (hash * uint64_t{0x9E3779B97F4A7C15} >> 32) & mask;
    while (m_slots[slot].count != 0 && m_slots[slot].hash != hash) slot = (slot + 1) & mask;
    return slot;
  }
  uint32_t number_of(uint32_t hash);
  void grow();

  std::vector<Slot> m_slots;  // open addressing, a power of two, at most half full
  std::vector<HashIndexEntry> m_entries;
  std::vector<uint32_t> m_sample_ids;
  std::size_t m_hash_count = 0;
};

}  // namespace cv::audio
