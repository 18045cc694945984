// Spectra, hash points and fingerprints of any samples, in any chunks and under every kernel that the
// processor can run, against the plain ones.
#include <cstring>

#include "audio/audio_fingerprint.h"
#include "audio/audio_spectrum_dispatch.h"
#include "audio/points.h"
#include "fuzzing.h"
#include "support/plain_spectrum.h"

namespace cv::fuzz {
namespace {

using Samples = std::vector<int16_t>;
using Frames = std::vector<audio::SpectrumFrame>;

/// Runs of samples as they are, of one value, of two in turn, and of the last ones again.
Samples take_sound(FuzzedDataProvider& input) {
  Samples sound;
  while (input.remaining_bytes() > 0 && sound.size() < 4000) {
    const uint16_t length = input.ConsumeIntegralInRange<uint16_t>(1, 600);
    switch (input.ConsumeIntegralInRange<uint8_t>(0, 3)) {
      case 0: {
        const Samples given = take_samples(input, length);
        sound.insert(sound.end(), given.begin(), given.end());
        break;
      }
      case 1:
        sound.insert(sound.end(), length, input.ConsumeIntegral<int16_t>());
        break;
      case 2: {
        const int16_t values[] = {input.ConsumeIntegral<int16_t>(),
                                  input.ConsumeIntegral<int16_t>()};
        const uint16_t period = input.ConsumeIntegralInRange<uint8_t>(1, 255);
        for (uint16_t i = 0; i < length; ++i) sound.push_back(values[i / period % 2]);
        break;
      }
      case 3:
        for (uint16_t i = 0; i < length && !sound.empty(); ++i) {
          sound.push_back(sound[sound.size() - std::min<std::size_t>(sound.size(), length)]);
        }
        break;
    }
  }
  return sound;
}

/// Copied out to its own size, so that reading behind a chunk is seen.
Frames frames_in_chunks(const Samples& sound, std::size_t chunk) {
  audio::SpectrumGenerator generator;
  test::FrameCollector collector;
  for (std::size_t at = 0; at < sound.size(); at += chunk) {
    const Samples part(
        sound.begin() + static_cast<std::ptrdiff_t>(at),
        sound.begin() + static_cast<std::ptrdiff_t>(std::min(at + chunk, sound.size())));
    generator.compute_spectrum(part.data(), part.size(), collector, nullptr);
  }
  return collector.frames;
}

void check_frames(const Samples& sound, std::size_t chunk) {
  const Frames expected = test::plain_frames(sound);
  Frames first;
  for (const audio::SpectrumKernel* kernel : audio::usable_spectrum_kernels()) {
    audio::use_spectrum_kernel(*kernel);
    const Frames frames = frames_in_chunks(sound, chunk);
    FUZZ_CHECK(frames.size() == expected.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
      FUZZ_CHECK(test::same_frame(frames[i], expected[i]));
      FUZZ_CHECK(test::point_of(frames[i]) == test::plain_hash(expected[i]));
    }
    // Also where they may differ from the plain ones, kernels agree.
    if (first.empty()) first = frames;
    FUZZ_CHECK(frames.empty() ||
               std::memcmp(frames.data(), first.data(), frames.size() * sizeof frames[0]) == 0);
  }
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv::fuzz;
  FuzzedDataProvider input(data, size);
  const unsigned phases = input.ConsumeIntegralInRange<uint8_t>(1, 8);
  const std::size_t chunk = input.ConsumeIntegralInRange<uint16_t>(1, 700);
  const Samples sound = take_sound(input);
  check_frames(sound, chunk);
  FUZZ_CHECK(cv::audio::fingerprint(sound, phases) == cv::test::plain_fingerprint(sound, phases));
  return 0;
}
