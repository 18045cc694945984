#include "matching_material.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <span>
#include <utility>

#include "audio/audio_fingerprint.h"
#include "support/recordings.h"

namespace cv::bench {

namespace {

using Audio = std::vector<int16_t>;

constexpr std::size_t rate = 8000;
constexpr std::size_t minute = 60 * rate;
// Less gives no frame.
constexpr std::size_t least_samples = 256;

const std::vector<test::Recording>& english() {
  static const auto prompts = test::english_prompts(least_samples);
  return prompts;
}

const std::vector<test::Recording>& french() {
  static const auto prompts = test::french_prompts(least_samples);
  return prompts;
}

/// Prompts in turn, most of them, with pauses that shift each against the frames.
Points prompts_in_turn(const std::vector<test::Recording>& prompts) {
  Audio audio(1000, 3);
  for (std::size_t i = 0; audio.size() < minute; ++i) {
    const Audio& heard = prompts[i * 7 % prompts.size()].samples;
    audio.insert(audio.end(), heard.begin(), heard.end());
    audio.insert(audio.end(), 800 + 37 * i, 0);
  }
  audio.resize(minute);
  return audio::fingerprint(audio);
}

template <typename Value>
Audio synthetic(std::size_t samples, Value value) {
  Audio audio(samples);
  for (std::size_t i = 0; i < samples; ++i) audio[i] = static_cast<int16_t>(value(i));
  return audio;
}

Audio tone_of(std::size_t samples) {
  return synthetic(samples, [](std::size_t i) {
    return 8000 * std::sin(2 * std::numbers::pi * 1004 * static_cast<double>(i) / rate);
  });
}

audio::HashSample make_sample(std::size_t id, Points points) {
  audio::HashSample sample{rc_ptr<audio::SampleMetadata>(new audio::SampleMetadata),
                           rc_ptr<audio::HashSamplePayload>(new audio::HashSamplePayload)};
  sample.metadata->id = static_cast<uint32_t>(id);
  sample.payload->points = std::move(points);
  return sample;
}

}  // namespace

std::size_t english_prompt_count() { return english().size(); }

std::vector<audio::HashSample> speech_samples(std::size_t count, unsigned phases) {
  const std::size_t prompts = english().size() + french().size();
  std::vector<audio::HashSample> samples;
  for (std::size_t i = 0; samples.size() < count; ++i) {
    const std::size_t which = i % prompts;
    const Audio& audio = which < english().size() ? english()[which].samples
                                                  : french()[which - english().size()].samples;
    const std::size_t skipped = std::min(i / prompts * 40, audio.size());
    samples.push_back(
        make_sample(i, audio::fingerprint(std::span(audio).subspan(skipped), phases)));
  }
  return samples;
}

audio::HashSample tone_sample(unsigned seconds) {
  return make_sample(1'000'000, audio::fingerprint(tone_of(seconds * rate)));
}

Points related_speech() { return prompts_in_turn(english()); }
Points unrelated_speech() { return prompts_in_turn(french()); }

Points noise() {
  std::mt19937 random(1);
  std::normal_distribution<double> loudness(0, 3000);
  return audio::fingerprint(
      synthetic(minute, [&](std::size_t) { return std::clamp(loudness(random), -3e4, 3e4); }));
}

Points music() {
  std::mt19937 random(2);
  std::vector<double> notes(4);
  return audio::fingerprint(synthetic(minute, [&](std::size_t i) {
    const std::size_t into = i % (rate / 2);
    if (into == 0) {
      for (double& note : notes) note = 110 * std::exp2(static_cast<double>(random() % 36) / 12);
    }
    double sum = 0;
    for (const double note : notes) {
      for (int harmonic = 1; harmonic <= 5; ++harmonic) {
        sum += std::sin(2 * std::numbers::pi * note * harmonic * static_cast<double>(i) / rate) /
               harmonic;
      }
    }
    return 2500 * sum * std::exp(-2.0 * static_cast<double>(into) / rate);
  }));
}

Points tone() { return audio::fingerprint(tone_of(minute + 50)); }

}  // namespace cv::bench
