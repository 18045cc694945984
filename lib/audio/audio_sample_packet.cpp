#include "audio/audio_sample_packet.h"

namespace cv::audio {

namespace {

// Byte by byte: no alignment asked for, no byte order assumed; compilers make one load of it.
uint16_t load_u16(const unsigned char* bytes) {
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

uint32_t load_u32(const unsigned char* bytes) {
  return load_u16(bytes) | static_cast<uint32_t>(load_u16(bytes + 2)) << 16;
}

void append_u16(std::vector<unsigned char>& bytes, uint16_t value) {
  bytes.push_back(static_cast<unsigned char>(value));
  bytes.push_back(static_cast<unsigned char>(value >> 8));
}

void append_u32(std::vector<unsigned char>& bytes, uint32_t value) {
  append_u16(bytes, static_cast<uint16_t>(value));
  append_u16(bytes, static_cast<uint16_t>(value >> 16));
}

}  // namespace

SamplePacket::Status SamplePacket::parse(const void* bytes, std::size_t size,
                                         SamplePacket& packet) {
  const auto* begin = static_cast<const unsigned char*>(bytes);
  if (size < header_size_bytes) return Status::TooShort;
  if (load_u16(begin) != magic) return Status::BadMagic;
  const uint32_t count = load_u32(begin + 4);
  if (count > (size - header_size_bytes) / point_size_bytes) return Status::CountExceedsBytes;
  packet.m_flags = load_u16(begin + 2);
  packet.m_count = count;
  packet.m_points = begin + header_size_bytes;
  return Status::Ok;
}

HashPoint SamplePacket::point(std::size_t index) const {
  const unsigned char* entry = m_points + index * point_size_bytes;
  return {.hash = load_u32(entry + 4), .offset = load_u32(entry)};
}

std::vector<HashPoint> SamplePacket::points() const {
  std::vector<HashPoint> points;
  points.reserve(m_count);
  for (std::size_t i = 0; i < m_count; ++i) points.push_back(point(i));
  return points;
}

std::vector<unsigned char> write_sample_packet(std::span<const HashPoint> points) {
  std::vector<unsigned char> bytes;
  bytes.reserve(SamplePacket::header_size_bytes + points.size() * SamplePacket::point_size_bytes);
  append_u16(bytes, SamplePacket::magic);
  append_u16(bytes, 0);
  append_u32(bytes, static_cast<uint32_t>(points.size()));
  for (const HashPoint& point : points) {
    append_u32(bytes, point.offset);
    append_u32(bytes, point.hash);
  }
  return bytes;
}

}  // namespace cv::audio
