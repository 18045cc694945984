#include "audio/audio_hash_index.h"

#include <utility>

namespace cv::audio {

/// Hashes are numbered as they are met; then the occurrences are sorted by number, by counting.
HashIndex::HashIndex(std::span<const Part> parts, std::vector<uint32_t> sample_ids)
    : m_sample_ids(std::move(sample_ids)) {
  std::size_t entries = 0;
  for (const Part& part : parts) entries += part.points.size();
  std::vector<uint32_t> numbers;
  numbers.reserve(entries);
  for (const Part& part : parts) {
    for (const HashPoint& point : part.points) numbers.push_back(number_of(point.hash));
  }

  std::vector<std::size_t> begins(m_hash_count + 1);
  for (const uint32_t number : numbers) ++begins[number + 1];
  for (std::size_t i = 1; i < begins.size(); ++i) begins[i] += begins[i - 1];
  for (Slot& slot : m_slots) {
    if (slot.count == 0) continue;
    const std::size_t number = std::exchange(slot.begin, begins[slot.begin]);
    slot.count = static_cast<uint32_t>(begins[number + 1] - begins[number]);
  }

  m_entries.resize(entries);
  auto number = numbers.begin();
  for (const Part& part : parts) {
    for (const HashPoint& point : part.points) {
      m_entries[begins[*number++]++] = {part.position, point.offset};
    }
  }
}

/// Until the entries are sorted, a slot's `begin` is the number of its hash.
uint32_t HashIndex::number_of(uint32_t hash) {
  if (2 * (m_hash_count + 1) > m_slots.size()) grow();
  Slot& slot = m_slots[slot_of(hash)];
  if (slot.count == 0) slot = {hash, 1, m_hash_count++};
  return static_cast<uint32_t>(slot.begin);
}

void HashIndex::grow() {
  std::vector<Slot> slots(m_slots.empty() ? 64 : 2 * m_slots.size());
  m_slots.swap(slots);
  for (const Slot& slot : slots) {
    if (slot.count != 0) m_slots[slot_of(slot.hash)] = slot;
  }
}

}  // namespace cv::audio
