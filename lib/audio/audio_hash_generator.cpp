#include "audio/audio_hash_generator.h"

#include <array>
#include <cmath>

#include "audio/audio_spectrum_dispatch.h"

namespace cv::audio {

namespace {

constexpr std::size_t hash_bins = 64;
constexpr unsigned position_bits = 6;

struct Jump {
  double height = -1;
  uint32_t position = 0;
};

/// The four highest jumps, in descending order.
class TopJumps {
 public:
  /// Positions arrive in ascending order, so on a tie the one already there stays ahead.
  void offer(const Jump& jump) {
    if (!(jump.height > m_jumps[3].height)) return;
    std::size_t place = 3;
    for (; place > 0 && jump.height > m_jumps[place - 1].height; --place) {
      m_jumps[place] = m_jumps[place - 1];
    }
    m_jumps[place] = jump;
  }

  uint32_t hash() const {
    uint32_t packed = 0;
    for (std::size_t i = 0; i < m_jumps.size(); ++i) {
      packed |= m_jumps[i].position << (position_bits * i);
    }
    return packed;
  }

 private:
  std::array<Jump, 4> m_jumps{};
};

uint32_t hash_of(const SpectrumFrame& frame) {
  const uint32_t hash = spectrum_kernel().hash(frame.magnitudes.data());
  if (hash != SpectrumKernel::undecided) return hash;
  TopJumps top;
  for (uint32_t i = 1; i < hash_bins; ++i) {
    top.offer({std::fabs(frame.magnitudes[i] - frame.magnitudes[i - 1]), i});
  }
  return top.hash();
}

}  // namespace

void HashGenerator::compute_hash(const SpectrumFrame& frame, HashGeneratorCallback& callback,
                                 void* user) {
  if (frame.deviation < least_hash_deviation) return;
  callback.on_hash_data({hash_of(frame), static_cast<uint32_t>(frame.index)}, user);
}

void HashExtractor::on_hash_data(HashPoint point, void* user) {
  static_cast<std::vector<HashPoint>*>(user)->push_back(point);
}

}  // namespace cv::audio
