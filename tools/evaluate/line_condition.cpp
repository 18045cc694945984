#include "tools/evaluate/line_condition.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "audio/audio_spectrum_generator.h"

namespace cv::tools {

namespace {

constexpr std::size_t activity_block_samples = 160;
constexpr double activity_range = 1000;  // 30 dB, as a ratio of powers

int16_t to_pcm(double value) {
  return static_cast<int16_t>(std::lrint(std::clamp(value, -32768.0, 32767.0)));
}

std::optional<double> parse_number(const std::string& text) {
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, status] = std::from_chars(text.data(), end, value);
  if (status != std::errc() || rest != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

/// Pairs of normal variables from pairs of uniform ones (G. E. P. Box, M. E. Muller, Ann. Math. Stat.
/// 29 (1958) 610-611); not std::normal_distribution, whose numbers are each library's own affair.
void add_noise(std::vector<int16_t>& audio, double power, std::mt19937_64& random) {
  const auto draw = [&random] { return (static_cast<double>(random() >> 11) + 0.5) * 0x1p-53; };
  for (std::size_t i = 0; i < audio.size(); i += 2) {
    const double radius = std::sqrt(-2 * power * std::log(draw()));
    const double angle = 2 * M_PI * draw();
    audio[i] = to_pcm(audio[i] + radius * std::cos(angle));
    if (i + 1 < audio.size()) audio[i + 1] = to_pcm(audio[i + 1] + radius * std::sin(angle));
  }
}

}  // namespace

double active_power(const std::vector<int16_t>& audio, std::span<const SampleRange> parts) {
  std::vector<double> powers;
  for (const SampleRange& part : parts) {
    const std::size_t end = std::min(part.end, audio.size());
    for (std::size_t at = part.begin; at + activity_block_samples <= end;
         at += activity_block_samples) {
      double sum = 0;
      for (std::size_t i = at; i < at + activity_block_samples; ++i) {
        sum += static_cast<double>(audio[i]) * audio[i];
      }
      powers.push_back(sum / activity_block_samples);
    }
  }
  if (powers.empty()) return 0;
  const double least = *std::max_element(powers.begin(), powers.end()) / activity_range;
  double sum = 0;
  std::size_t active = 0;
  for (const double power : powers) {
    if (power < least) continue;
    sum += power;
    ++active;
  }
  return sum / static_cast<double>(active);
}

std::optional<LineCondition::Step> LineCondition::parse_step(const std::string& text,
                                                             std::string& error) {
  const struct {
    const char* name;
    Step step;
    bool may_stand_alone;
    int least, most;  // of its number; equal: it takes none
  } table[] = {
      {"clean", {Kind::clean}, true, 0, 0},
      {"gain", {Kind::gain}, false, -90, 90},
      {"mulaw", {Kind::codec, SoundCodec::mulaw}, true, 0, 0},
      {"alaw", {Kind::codec, SoundCodec::alaw}, true, 0, 0},
      {"gsm", {Kind::codec, SoundCodec::gsm}, true, 0, 0},
      {"noise", {Kind::noise}, false, -90, 90},
      {"offset", {Kind::offset}, true, 0, audio::frame_hop_samples - 1},
  };
  const auto colon = text.find(':');
  for (const auto& row : table) {
    if (text.substr(0, colon) != row.name) continue;
    Step step = row.step;
    if (colon == text.npos && row.may_stand_alone) return step;
    const bool takes_number = row.least < row.most;
    if (takes_number && colon != text.npos) step.value = parse_number(text.substr(colon + 1));
    if (step.value && *step.value >= row.least && *step.value <= row.most) return step;
    error = "\"" + text + "\": " + row.name;
    error += !takes_number ? " takes no number"
                           : " takes a number from " + std::to_string(row.least) + " to " +
                                 std::to_string(row.most);
    return std::nullopt;
  }
  error =
      "\"" + text +
      "\" is no condition; known are clean, gain:DB, mulaw, alaw, gsm, noise:DB, offset[:SAMPLES]";
  return std::nullopt;
}

std::optional<LineCondition> LineCondition::parse(const std::string& text, std::string& error) {
  LineCondition condition;
  condition.m_text = text;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('+', begin), text.size());
    const auto step = parse_step(text.substr(begin, end - begin), error);
    if (!step) return std::nullopt;
    condition.m_steps.push_back(*step);
    begin = end + 1;
  }
  return condition;
}

void LineCondition::apply_step(const Step& step, std::vector<int16_t>& audio,
                               std::vector<SampleRange>& plays, std::mt19937_64& random) {
  switch (step.kind) {
    case Kind::clean:
      return;
    case Kind::gain: {
      const double factor = std::pow(10, *step.value / 20);
      for (int16_t& sample : audio) sample = to_pcm(sample * factor);
      return;
    }
    case Kind::codec:
      audio = through_codec(audio, step.codec);
      return;
    case Kind::noise: {
      const SampleRange all{0, audio.size()};
      const double signal = active_power(audio, plays.empty() ? std::span(&all, 1) : plays);
      add_noise(audio, signal / std::pow(10, *step.value / 10), random);
      return;
    }
    case Kind::offset: {
      const std::size_t offset =
          step.value ? static_cast<std::size_t>(*step.value) : random() % audio::frame_hop_samples;
      audio.insert(audio.begin(), offset, int16_t{0});
      for (SampleRange& play : plays) play = {play.begin + offset, play.end + offset};
      return;
    }
  }
}

void LineCondition::apply(std::vector<int16_t>& audio, std::vector<SampleRange>& plays,
                          std::mt19937_64& random) const {
  for (const Step& step : m_steps) apply_step(step, audio, plays, random);
}

}  // namespace cv::tools
