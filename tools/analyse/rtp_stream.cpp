#include "tools/analyse/rtp_stream.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>
#include <utility>

#include "tools/audio_file.h"
#include "tools/evaluate/sound_codec.h"

namespace cv::tools {

namespace {

// RFC 3550, A.1: a jump of more is a stream that has begun anew, if the next packet goes on from there.
constexpr int max_dropout = 3000;
constexpr int max_misorder = 100;
// By how much time stamps and the capture's clock may differ over one gap.
constexpr int64_t clock_slack_samples = 8000;
// What network and scheduling do to arrivals.
constexpr int64_t jitter_samples = 1600;

using Decoded = std::array<int16_t, 256>;

Decoded decode_all(SoundCodec codec) {
  std::vector<unsigned char> codes(256);
  std::iota(codes.begin(), codes.end(), static_cast<unsigned char>(0));
  const auto samples = decode_sound(codes, codec);
  Decoded decoded{};
  std::copy(samples.begin(), samples.end(), decoded.begin());
  return decoded;
}

const Decoded& decoded(uint8_t payload_type) {
  static const Decoded mulaw = decode_all(SoundCodec::mulaw);
  static const Decoded alaw = decode_all(SoundCodec::alaw);
  return payload_type == payload_type_mulaw ? mulaw : alaw;
}

}  // namespace

void RtpStream::take(const RtpPacket& packet, int64_t arrival_us) {
  Held held{packet.payload_type,
            packet.timestamp,
            arrival_us,
            {packet.payload.begin(), packet.payload.end()}};
  if (m_ssrc != packet.key.ssrc) begin_source(packet.key.ssrc);
  if (!m_newest) restart(packet.sequence);
  const auto ahead = static_cast<int16_t>(
      static_cast<uint16_t>(packet.sequence - static_cast<uint16_t>(*m_newest)));
  if (ahead <= max_dropout && ahead >= -max_misorder) {
    m_stray.reset();
    return hold(*m_newest + ahead, std::move(held));
  }
  if (m_stray && packet.sequence == static_cast<uint16_t>(m_stray->first + 1)) {
    auto [sequence, first] = *std::exchange(m_stray, std::nullopt);
    --m_faults.stray;
    ++m_faults.restarts;
    finish();
    restart(sequence);
    hold(*m_newest, std::move(first));
    return hold(*m_newest + 1, std::move(held));
  }
  ++m_faults.stray;
  m_stray.emplace(packet.sequence, std::move(held));
}

void RtpStream::begin_source(uint32_t ssrc) {
  finish();
  m_stray.reset();
  m_newest.reset();
  m_source_changed = m_ssrc.has_value();
  m_ssrc = ssrc;
}

/// The next packet may have this number.
void RtpStream::restart(uint16_t sequence) {
  // Far from 0: what comes before the first packet has a number, too.
  m_newest = (int64_t{1} << 32) + sequence;
  m_released.reset();
}

void RtpStream::hold(int64_t number, Held packet) {
  m_newest = std::max(*m_newest, number);
  if ((m_released && number <= *m_released) ||
      !m_window.emplace(number, std::move(packet)).second) {
    ++m_faults.late;
    return;
  }
  while (m_window.size() > reorder_packets) release_first();
}

void RtpStream::release_first() {
  auto first = m_window.extract(m_window.begin());
  if (m_released) m_faults.lost += static_cast<uint64_t>(first.key() - *m_released - 1);
  m_released = first.key();
  play(first.mapped());
}

void RtpStream::finish() {
  while (!m_window.empty()) release_first();
}

void RtpStream::play(const Held& packet) {
  if (!is_g711(packet.payload_type)) {
    ++m_faults.other_type;
    return;
  }
  if (m_first_arrival_us) append_silence(gap_before(packet));
  if (!m_first_arrival_us) m_first_arrival_us = packet.arrival_us;
  if (m_samples.size() + packet.payload.size() > max_samples) {
    m_too_long = true;
    return;
  }
  const Decoded& samples = decoded(packet.payload_type);
  for (const uint8_t code : packet.payload) m_samples.push_back(samples[code]);
  m_last_samples = static_cast<int64_t>(packet.payload.size());
  m_last_arrival_us = packet.arrival_us;
  m_next_timestamp = packet.timestamp + static_cast<uint32_t>(m_last_samples);
}

int64_t RtpStream::gap_before(const Held& packet) {
  const int64_t by_timestamp = static_cast<int32_t>(packet.timestamp - m_next_timestamp);
  const int64_t by_arrival =
      (packet.arrival_us - m_last_arrival_us) / us_per_sample - m_last_samples;
  const bool anew = std::exchange(m_source_changed, false);
  if (!anew && by_timestamp >= 0 &&
      by_timestamp <= std::max<int64_t>(0, by_arrival) + clock_slack_samples) {
    return by_timestamp;
  }
  ++m_faults.restarts;
  return by_arrival > jitter_samples ? by_arrival : 0;
}

void RtpStream::append_silence(int64_t samples) {
  if (samples > max_gap_samples) {
    ++m_faults.cut_gaps;
    samples = max_gap_samples;
  }
  const auto count = std::min(static_cast<std::size_t>(samples), max_samples - m_samples.size());
  m_too_long = m_too_long || count < static_cast<std::size_t>(samples);
  m_samples.resize(m_samples.size() + count);
}

}  // namespace cv::tools
