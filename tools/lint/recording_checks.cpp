#include "tools/lint/recording_checks.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <unordered_map>

#include "audio/audio_hash_generator.h"
#include "audio/audio_spectrum_generator.h"
#include "tools/audio_file.h"
#include "tools/text_table.h"

namespace cv::tools {

namespace {

constexpr double full_scale = 32768;
constexpr double level_quantile = 0.95;

struct Frames : public audio::SpectrumGeneratorCallback {
  void on_spectrum_data(const audio::SpectrumFrame& frame, void*) override {
    amplitudes.push_back(frame.amplitude);
    faint.push_back(frame.deviation < audio::least_hash_deviation);
    generator.compute_hash(frame, extractor, &points);
  }

  std::vector<double> amplitudes;
  std::vector<bool> faint;
  std::vector<audio::HashPoint> points;
  audio::HashGenerator generator;
  audio::HashExtractor extractor;
};

double share(std::size_t part, std::size_t whole) {
  return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

double clipped_share(std::span<const int16_t> samples) {
  std::size_t clipped = 0;
  for (std::size_t begin = 0, end = 0; begin < samples.size(); begin = end) {
    for (end = begin + 1; end < samples.size() && samples[end] == samples[begin];) ++end;
    const bool flat_top = std::abs(int{samples[begin]}) >= lint_limit::clip_level &&
                          end - begin >= lint_limit::clip_run_samples;
    if (flat_top) clipped += end - begin;
  }
  return share(clipped, samples.size());
}

double level_of(std::vector<double> amplitudes) {
  if (amplitudes.empty()) return 0;
  std::sort(amplitudes.begin(), amplitudes.end());
  return amplitudes[static_cast<std::size_t>(level_quantile *
                                             static_cast<double>(amplitudes.size() - 1))];
}

void note_silence(const Frames& frames, double level, RecordingFacts& facts) {
  const double silent_level = level * std::pow(10, -lint_limit::silent_below_db / 20);
  const std::size_t count = frames.amplitudes.size();
  std::size_t silent = 0, first_sound = count, sound_end = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (frames.faint[i] || frames.amplitudes[i] < silent_level) {
      ++silent;
      continue;
    }
    first_sound = std::min(first_sound, i);
    sound_end = i + 1;
  }
  facts.silent = share(silent, count);
  facts.leading_silence_s = static_cast<double>(first_sound) * frame_s;
  if (sound_end > 0) facts.sound_s = static_cast<double>(sound_end - first_sound + 1) * frame_s;
}

void note_hashes(const std::vector<audio::HashPoint>& points, RecordingFacts& facts) {
  std::unordered_map<uint32_t, std::size_t> counts;
  std::size_t run = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const bool goes_on = i != 0 && points[i].hash == points[i - 1].hash &&
                         points[i].offset == points[i - 1].offset + 1;
    run = goes_on ? run + 1 : 1;
    facts.longest_run_frames = std::max(facts.longest_run_frames, run);
    facts.commonest_frames = std::max(facts.commonest_frames, ++counts[points[i].hash]);
  }
  facts.commonest_share = share(facts.commonest_frames, points.size());
}

std::string percent(double value) { return fixed(100 * value, 1) + " %"; }

}  // namespace

RecordingFacts recording_facts(std::span<const int16_t> samples) {
  Frames frames;
  audio::SpectrumGenerator generator;
  generator.compute_spectrum(samples.data(), samples.size(), frames, nullptr);
  RecordingFacts facts;
  facts.seconds = static_cast<double>(samples.size()) / audio_rate_hz;
  const double level = level_of(frames.amplitudes);
  // Below half a step of 16 bits there is nothing.
  facts.level_dbfs = 20 * std::log10(std::max(level, 0.5) / full_scale);
  facts.clipped = clipped_share(samples);
  note_silence(frames, level, facts);
  note_hashes(frames.points, facts);
  return facts;
}

std::vector<LintFinding> check_recording(const std::string& name, const RecordingFacts& facts,
                                         int rate_hz) {
  std::vector<LintFinding> findings;
  const auto find = [&](bool wrong, const char* kind, const std::string& text) {
    if (wrong) findings.push_back({.kind = kind, .recording = name, .text = text});
  };
  find(rate_hz < audio_rate_hz, lint_kind::rate,
       std::to_string(rate_hz) + " samples a second: nothing above " + std::to_string(rate_hz / 2) +
           " Hz, where calls have up to 4000");
  find(rate_hz > audio_rate_hz, lint_kind::rate,
       std::to_string(rate_hz) +
           " samples a second: converted to 8000 with every reading, and "
           "hardly by the filter that its calls go through");
  find(facts.sound_s < lint_limit::least_sound_s, lint_kind::too_short,
       fixed(facts.sound_s, 2) + " s of sound: unreliable under " +
           fixed(lint_limit::least_sound_s, 0) + " s");
  find(facts.level_dbfs < lint_limit::least_level_dbfs, lint_kind::quiet,
       fixed(facts.level_dbfs, 0) + " dBFS: too quiet for 16 bits to carry");
  find(facts.clipped > lint_limit::most_clipped, lint_kind::clipped,
       percent(facts.clipped) + " of the samples are clipped");
  find(facts.silent > lint_limit::most_silent, lint_kind::silence,
       percent(facts.silent) + " of it is silence");
  find(facts.leading_silence_s > lint_limit::most_leading_silence_s, lint_kind::leading_silence,
       fixed(facts.leading_silence_s, 2) +
           " s of silence before the first sound: found later, and "
           "reported from where the silence begins");
  const bool beats = facts.commonest_share >= lint_limit::tone_share &&
                     facts.commonest_frames >= lint_limit::tone_run_frames;
  find(facts.longest_run_frames >= lint_limit::tone_run_frames || beats, lint_kind::tone,
       "a steady tone: one hash for " +
           fixed(static_cast<double>(facts.longest_run_frames) * frame_s, 2) + " s in a row, " +
           std::to_string(facts.commonest_frames) +
           " times in all; every point of such a tone in a call costs as many votes");
  return findings;
}

}  // namespace cv::tools
