#include "tools/play/call_schedule.h"

#include <algorithm>
#include <utility>

#include "tools/crc64.h"

namespace cv::tools {

bool write_start(const media::CallKey& call, std::string_view call_id,
                 const StartSettings& settings, media::Datagram& out) {
  media::StartFields fields;
  fields.features = settings.features;
  fields.flags = media::StartPacket::flag_rule;
  fields.ts = settings.timestamp;
  fields.rule = settings.rule;
  fields.report_addr = settings.report_addr;
  fields.report_port = settings.report_port;
  fields.call_id = call_id;
  return media::write_start(call, 0, fields, out);
}

CallSchedule::CallSchedule(CallSettings settings, Sides sides)
    : m_settings(std::move(settings)),
      m_key{crc64(m_settings.call_id), m_settings.uuid},
      m_sides(std::move(sides)),
      m_blocks((std::max(m_sides[0].size(), m_sides[1].size()) + block_samples - 1) /
               block_samples) {}

bool CallSchedule::next(int64_t& due_us, media::Datagram& out) {
  if (m_ended) return false;
  if (!m_started) {
    m_started = true;
    due_us = 0;
    return write_start(m_key, m_settings.call_id, m_settings, out);
  }
  if (m_block != m_blocks && skips(m_side)) pass_side();
  due_us = static_cast<int64_t>(m_block) * block_us;
  if (m_block == m_blocks) {
    m_ended = true;
    return media::write_terminate(m_key, static_cast<uint64_t>(due_us), out);
  }
  const bool written = write_block(m_block, m_side, out);
  pass_side();
  return written;
}

void CallSchedule::pass_side() {
  m_block += m_side;
  m_side ^= 1;
}

void CallSchedule::cut_short() { m_blocks = m_block; }

bool CallSchedule::write_block(std::size_t block, uint16_t side, media::Datagram& out) {
  const std::vector<int16_t>& audio = m_sides[side];
  const std::size_t begin = std::min(block * block_samples, audio.size());
  const std::size_t end = std::min(begin + block_samples, audio.size());
  std::array<int16_t, block_samples> samples{};
  std::copy(audio.begin() + static_cast<std::ptrdiff_t>(begin),
            audio.begin() + static_cast<std::ptrdiff_t>(end), samples.begin());
  media::DataFields fields;
  fields.side = side;
  fields.seq = static_cast<uint32_t>(block + 1);  // 0 stands for "nothing seen yet"
  fields.off = static_cast<uint32_t>(block * block_samples);
  fields.samples = samples;
  return media::write_data(m_key, static_cast<uint64_t>(block) * block_us, fields, out);
}

}  // namespace cv::tools
