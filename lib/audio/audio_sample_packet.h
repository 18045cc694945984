// The binary form of one sample's fingerprint, as the configuration manager sends it.
//
// Little-endian, packed:
//   0  u16  magic   0x4847, the bytes "GH"
//   2  u16  flags   0; the parser passes any value on, the receiver refuses what it does not know
//   4  u32  count   number of points
//   8  count x { u32 offset, u32 hash }: the frame first, the reverse of HashPoint's order
// Bytes behind the last point are ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "audio/audio_hash_generator.h"

namespace cv::audio {

/// A view of a checked packet: it owns nothing, and the bytes must outlive it. Any alignment.
class SamplePacket {
 public:
  enum class Status : int32_t {
    Ok = 0,
    TooShort = 1,           // less than a header
    BadMagic = 2,           // not a sample packet
    CountExceedsBytes = 3,  // the count promises more points than there are bytes
  };

  static constexpr uint16_t magic = 0x4847;
  static constexpr std::size_t header_size_bytes = 8;
  static constexpr std::size_t point_size_bytes = 8;

  /// No flags, no points.
  SamplePacket() = default;

  /// Checks in the order of Status. `packet` is a view of `bytes` on Ok, untouched otherwise.
  static Status parse(const void* bytes, std::size_t size, SamplePacket& packet);

  uint16_t flags() const { return m_flags; }
  uint32_t count() const { return m_count; }
  /// `index` is below count().
  HashPoint point(std::size_t index) const;
  /// All points, in packet order.
  std::vector<HashPoint> points() const;

 private:
  uint16_t m_flags = 0;
  uint32_t m_count = 0;
  const unsigned char* m_points = nullptr;
};

/// The packet of `points`, at most 2^32 - 1 of them, with flags 0.
std::vector<unsigned char> write_sample_packet(std::span<const HashPoint> points);

}  // namespace cv::audio
