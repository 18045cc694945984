#include "audio/audio_hash_database.h"

#include <algorithm>

namespace cv::audio {

const HashDatabase::Entries HashDatabase::m_empty_entry;
const HashSample HashDatabase::m_empty_sample;

HashDatabase::HashDatabase(const std::vector<HashSample>& samples) {
  const std::vector<HashIndex::Part> parts = number_samples(samples);
  m_index = HashIndex(parts, sample_ids());
  m_layout = make_layout();
}

std::vector<HashIndex::Part> HashDatabase::number_samples(const std::vector<HashSample>& samples) {
  std::vector<HashIndex::Part> parts;
  parts.reserve(samples.size());
  for (const HashSample& sample : samples) {
    const auto next = static_cast<uint32_t>(m_samples.size());
    const auto [entry, is_new] = m_positions.emplace(sample.metadata->id, next);
    if (is_new) {
      m_samples.emplace_back();
      m_payloads.emplace_back();
    }
    const uint32_t position = entry->second;
    m_samples[position] = sample;
    m_payloads[position].push_back(sample.payload);
    parts.push_back({position, sample.payload->points});
  }
  return parts;
}

std::vector<uint32_t> HashDatabase::sample_ids() const {
  std::vector<uint32_t> ids;
  ids.reserve(m_samples.size());
  for (const HashSample& sample : m_samples) ids.push_back(sample.metadata->id);
  return ids;
}

VoteLayout HashDatabase::make_layout() const {
  std::vector<VoteLayout::Sample> samples(m_samples.size());
  for (std::size_t position = 0; position < samples.size(); ++position) {
    VoteLayout::Sample& sample = samples[position];
    sample.threshold = m_samples[position].metadata->threshold;
    for (const auto& payload : m_payloads[position]) {
      sample.points += payload->points.size();
      for (const HashPoint& point : payload->points) {
        sample.longest_offset = std::max(sample.longest_offset, point.offset);
      }
    }
  }
  return VoteLayout(samples);
}

const HashSample& HashDatabase::sample(uint32_t sample_id) const {
  const auto found = m_positions.find(sample_id);
  return found == m_positions.end() ? m_empty_sample : m_samples[found->second];
}

}  // namespace cv::audio
