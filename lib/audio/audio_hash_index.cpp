#include "audio/audio_hash_index.h"

#include <utility>

namespace cv::audio {

HashIndex::HashIndex(std::span<const Part> parts, std::vector<uint32_t> sample_ids)
    : m_sample_ids(std::move(sample_ids)) {
  for (const Part& part : parts) m_entry_count += part.points.size();
  const std::vector<uint32_t> groups = group_by_hash(parts);
  write_runs(parts, groups);
}

/// Numbers the hashes in the order they are first met; gives the number for every point in turn. Until
/// the runs are written, a slot's `begin` is the number of its hash.
std::vector<uint32_t> HashIndex::group_by_hash(std::span<const Part> parts) {
  std::vector<uint32_t> groups;
  groups.reserve(m_entry_count);
  for (const Part& part : parts) {
    for (const HashPoint& point : part.points) {
      groups.push_back(static_cast<uint32_t>(enter(point.hash).begin));
    }
  }
  return groups;
}

HashIndex::Slot& HashIndex::enter(uint32_t hash) {
  if (2 * (m_hash_count + 1) > m_slots.size()) grow();
  Slot& slot = m_slots[slot_of(hash)];
  if (slot.words == 0) slot = {hash, 1, m_hash_count++};
  return slot;
}

void HashIndex::grow() {
  std::vector<Slot> slots(m_slots.empty() ? 64 : 2 * m_slots.size());
  m_slots.swap(slots);
  for (const Slot& slot : slots) {
    if (slot.words != 0) m_slots[slot_of(slot.hash)] = slot;
  }
}

void HashIndex::write_runs(std::span<const Part> parts, std::span<const uint32_t> groups) {
  // Gather the occurrences of each hash, in the order given.
  struct Occurrence {
    uint32_t position;
    uint32_t offset;
  };
  std::vector<std::size_t> ends(m_hash_count + 1);
  for (const uint32_t group : groups) ++ends[group + 1];
  for (std::size_t i = 1; i < ends.size(); ++i) ends[i] += ends[i - 1];
  std::vector<Occurrence> occurrences(m_entry_count);
  auto group = groups.begin();
  for (const Part& part : parts) {
    for (const HashPoint& point : part.points) {
      occurrences[ends[*group++]++] = {part.position, point.offset};  // a begin becomes an end
    }
  }

  m_words.reserve(m_entry_count * (1 + HashRunCursor::header_words) / 2);
  for (Slot& slot : m_slots) {
    if (slot.words == 0) continue;
    const std::size_t number = std::exchange(slot.begin, m_words.size());
    std::size_t next = number == 0 ? 0 : ends[number - 1];
    while (next < ends[number]) {
      const uint32_t position = occurrences[next].position;
      const std::size_t header = m_words.size();
      m_words.insert(m_words.end(), {position, 0});
      while (next < ends[number] && occurrences[next].position == position) {
        m_words.push_back(occurrences[next++].offset);
      }
      m_words[header + 1] = static_cast<uint32_t>(m_words.size() - header - 2);
    }
    slot.words = static_cast<uint32_t>(m_words.size() - slot.begin);
  }
}

}  // namespace cv::audio
