#include "audio/audio_hash_database.h"

#include <algorithm>
#include <bit>

namespace cv::audio {

namespace {

struct Occurrence {
  uint32_t hash;
  HashDatabaseEntry entry;
};

/// Grouped by hash; within a hash in the order of samples and points.
std::vector<Occurrence> gather(const std::vector<HashSample>& samples) {
  std::size_t count = 0;
  for (const HashSample& sample : samples) count += sample.payload->points.size();
  std::vector<Occurrence> occurrences;
  occurrences.reserve(count);
  for (const HashSample& sample : samples) {
    for (const HashPoint& point : sample.payload->points) {
      occurrences.push_back({point.hash, {sample.metadata->id, point.offset}});
    }
  }
  std::stable_sort(occurrences.begin(), occurrences.end(),
                   [](const Occurrence& a, const Occurrence& b) { return a.hash < b.hash; });
  return occurrences;
}

}  // namespace

const HashDatabase::Entries HashDatabase::m_empty_entry;
const HashSample HashDatabase::m_empty_sample;

HashDatabase::HashDatabase(const std::vector<HashSample>& samples) {
  for (const HashSample& sample : samples) m_samples[sample.metadata->id] = sample;
  build_index(samples);
}

void HashDatabase::build_index(const std::vector<HashSample>& samples) {
  std::vector<Run> runs;
  for (const Occurrence& occurrence : gather(samples)) {
    if (runs.empty() || runs.back().hash != occurrence.hash) {
      runs.push_back({occurrence.hash, 0, m_entries.size()});
    }
    ++runs.back().count;
    m_entries.push_back(occurrence.entry);
  }
  m_hash_count = runs.size();
  m_index.resize(std::bit_ceil(2 * runs.size() + 1));
  for (const Run& run : runs) m_index[slot_of(run.hash)] = run;
}

/// The slot of `hash`, or the free one where it would be. The table always has a free slot.
std::size_t HashDatabase::slot_of(uint32_t hash) const {
  // Neighbouring hashes are common, so they are spread first. (Fibonacci hashing: D. E. Knuth, The Art
  // of Computer Programming 3, 6.4.)
  const std::size_t mask = m_index.size() - 1;
  std::size_t slot = (hash * uint64_t{0x9E3779B97F4A7C15} >> 32) & mask;
  while (m_index[slot].count != 0 && m_index[slot].hash != hash) slot = (slot + 1) & mask;
  return slot;
}

HashDatabase::Entries HashDatabase::entries(uint32_t hash) const {
  if (m_index.empty()) return m_empty_entry;
  const Run& run = m_index[slot_of(hash)];
  if (run.count == 0) return m_empty_entry;
  return {&m_entries[run.begin], run.count};
}

const HashSample& HashDatabase::sample(uint32_t sample_id) const {
  const auto found = m_samples.find(sample_id);
  return found == m_samples.end() ? m_empty_sample : found->second;
}

}  // namespace cv::audio
