#include "tools/evaluate/evaluated_call.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <stdexcept>
#include <utility>

#include "audio/audio_spectrum_generator.h"

namespace cv::tools {

namespace {

constexpr std::size_t least_lead_samples = audio_rate_hz;
constexpr std::size_t most_lead_samples = std::size_t{5} * audio_rate_hz;
constexpr std::size_t tail_samples = std::size_t{2} * audio_rate_hz;

AudioChannels read_recording_file(const std::string& path) {
  std::string error;
  auto channels = read_channels(path, 2, error);
  if (!channels) throw std::runtime_error(path + ": " + error);
  return std::move(*channels);
}

template <typename T>
void shuffle(std::vector<T>& items, std::mt19937_64& random) {
  for (std::size_t i = items.size(); i > 1; --i) std::swap(items[i - 1], items[random() % i]);
}

using Speech = std::vector<std::vector<int16_t>>;

/// Pieces of recordings, to be joined.
struct Piece {
  const int16_t* begin;
  std::size_t samples;
};

EvaluatedCall joined_call(std::string name, std::vector<Piece> pieces, EvaluatedSide side) {
  return {std::move(name), {std::move(side)}, [pieces = std::move(pieces)] {
            std::vector<int16_t> audio;
            for (const Piece& piece : pieces) {
              audio.insert(audio.end(), piece.begin, piece.begin + piece.samples);
            }
            return AudioChannels{std::move(audio)};
          }};
}

class Planter {
 public:
  Planter(const PlantedPlan& plan, const SampleSet& set, const Speech& background)
      : m_plan(plan), m_set(set), m_background(background), m_random(plan.seed) {}

  void add_planted(std::vector<EvaluatedCall>& calls) {
    std::vector<uint32_t> order;
    for (std::size_t i = 0; i < m_plan.calls; ++i) {
      if (order.empty()) {
        order = fitting();
        shuffle(order, m_random);
      }
      calls.push_back(plant(order.back()));
      order.pop_back();
    }
  }

  void add_background(std::vector<EvaluatedCall>& calls) {
    double total_s = 0;
    for (std::size_t round = 0; round == 0 || total_s < 3600 * m_plan.background_hours; ++round) {
      total_s += add_background_round(round, calls);
    }
  }

  /// Positions of the samples of the lengths wanted.
  std::vector<uint32_t> fitting() const {
    std::vector<uint32_t> positions;
    for (uint32_t i = 0; i < m_set.samples().size(); ++i) {
      const double seconds = static_cast<double>(m_set.audio(i).size()) / audio_rate_hz;
      if (seconds >= m_plan.least_s && seconds <= m_plan.most_s) positions.push_back(i);
    }
    return positions;
  }

 private:
  std::size_t draw(std::size_t below) { return m_random() % below; }

  /// All background once; its seconds.
  double add_background_round(std::size_t round, std::vector<EvaluatedCall>& calls) {
    std::vector<std::size_t> order(m_background.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    shuffle(order, m_random);
    std::vector<Piece> pieces;
    double call_s = 0;
    double total_s = 0;
    for (std::size_t i = 0; i < order.size(); ++i) {
      const auto& speech = m_background[order[i]];
      const std::size_t cut =
          round == 0 ? 0 : std::min(draw(audio::frame_hop_samples), speech.size() - 1);
      pieces.push_back({speech.data() + cut, speech.size() - cut});
      const double seconds = static_cast<double>(speech.size() - cut) / audio_rate_hz;
      call_s += seconds;
      total_s += seconds;
      if (call_s < m_plan.background_call_s && i + 1 < order.size()) continue;
      calls.push_back(joined_call("background speech", std::exchange(pieces, {}), {}));
      call_s = 0;
    }
    return total_s;
  }

  EvaluatedCall plant(uint32_t position) {
    std::size_t lead = least_lead_samples + draw(most_lead_samples - least_lead_samples);
    if (lead % audio::frame_hop_samples == 0) lead += 1 + draw(audio::frame_hop_samples - 1);
    std::vector<Piece> pieces;
    add_speech(lead, pieces);
    const auto& sample = m_set.audio(position);
    pieces.push_back({sample.data(), sample.size()});
    add_speech(tail_samples, pieces);
    return joined_call(m_set.samples()[position].name, std::move(pieces),
                       {TruthSide::every, {{position, lead}}});
  }

  void add_speech(std::size_t samples, std::vector<Piece>& pieces) {
    while (samples > 0) {
      const auto& speech = m_background[draw(m_background.size())];
      const std::size_t taken = std::min(samples, speech.size());
      pieces.push_back({speech.data(), taken});
      samples -= taken;
    }
  }

  const PlantedPlan& m_plan;
  const SampleSet& m_set;
  const Speech& m_background;
  std::mt19937_64 m_random;
};

}  // namespace

std::vector<SideChannel> channels_of(const EvaluatedCall& call, std::size_t channels) {
  std::vector<SideChannel> out;
  for (const EvaluatedSide& side : call.sides) {
    if (side.side == TruthSide::every) {
      for (std::size_t channel = 0; channel < channels; ++channel) out.push_back({&side, channel});
    } else {
      out.push_back({&side, channels == 1 || side.side == TruthSide::originator ? 0U : 1U});
    }
  }
  if (channels == 1 && out.size() > 1) {
    throw std::runtime_error(call.name + ": it has one channel, and the truth speaks of two sides");
  }
  return out;
}

std::optional<std::vector<EvaluatedCall>> labelled_calls(const std::vector<TruthLine>& truth,
                                                         const std::string& folder,
                                                         const SampleSet& set, std::string& error) {
  std::vector<EvaluatedCall> calls;
  std::map<std::string, std::size_t> known;
  for (const TruthLine& line : truth) {
    const auto fail = [&](const std::string& reason) {
      error = "line " + std::to_string(line.line) + ": " + reason;
      return std::nullopt;
    };
    const std::string path = std::filesystem::path(folder) / line.recording;
    const auto [found, is_new] = known.try_emplace(line.recording, calls.size());
    if (is_new) {
      std::error_code no_status;
      if (!std::filesystem::is_regular_file(path, no_status)) {
        return fail("there is no recording " + path);
      }
      calls.push_back({line.recording, {}, [path] { return read_recording_file(path); }});
    }
    auto& sides = calls[found->second].sides;
    auto side = std::find_if(sides.begin(), sides.end(),
                             [&](const EvaluatedSide& each) { return each.side == line.side; });
    if (side == sides.end()) side = sides.insert(sides.end(), {line.side, {}});
    if (line.sample.empty()) continue;
    const auto position = set.find(line.sample);
    if (!position) return fail("the rule looks for no sample \"" + line.sample + "\"");
    side->plays.push_back(
        {*position, static_cast<std::size_t>(std::llround(line.start_s * audio_rate_hz))});
  }
  return calls;
}

std::optional<std::vector<EvaluatedCall>> planted_calls(
    const PlantedPlan& plan, const SampleSet& set,
    const std::vector<std::vector<int16_t>>& background, std::string& error) {
  std::size_t samples = 0;
  for (const auto& speech : background) samples += speech.size();
  if (samples == 0) {
    error = "there is no background speech to play samples in";
    return std::nullopt;
  }
  Planter planter(plan, set, background);
  if (planter.fitting().empty()) {
    error = "no sample is of the length wanted";
    return std::nullopt;
  }
  std::vector<EvaluatedCall> calls;
  planter.add_planted(calls);
  planter.add_background(calls);
  return calls;
}

}  // namespace cv::tools
