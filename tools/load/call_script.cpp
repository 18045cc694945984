#include "tools/load/call_script.h"

#include <algorithm>
#include <utility>

#include "tools/audio_file.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {

namespace {

constexpr int max_tries = 50;
// Around a planted recording, as around one that a switch plays.
constexpr std::size_t pause_samples = audio_rate_hz / 4;

}  // namespace

uint32_t CallScript::blocks() const {
  return static_cast<uint32_t>(sides[0].size() / block_samples);
}

CallScript ScriptWriter::write(uint32_t blocks) {
  CallScript script = draft(blocks);
  find(script);
  return script;
}

std::optional<CallScript> ScriptWriter::write_with_prompt(uint32_t blocks) {
  for (int i = 0; i < max_tries; ++i) {
    CallScript script = draft(blocks);
    if (plant(script)) return script;
  }
  return std::nullopt;
}

/// All but what is planted in it and what is found.
CallScript ScriptWriter::draft(uint32_t blocks) {
  CallScript script;
  for (auto& side : script.sides) side = talk(blocks * block_samples);
  for (auto& fates : script.fates) fates = draw_fates(blocks, m_impairments, m_random);
  m_switched += m_impairments.switched;
  if (m_switched >= 1) {
    m_switched -= 1;
    script.switches = draw_switches(blocks, m_random);
  }
  return script;
}

/// Recordings at random, with pauses of 0.3 to 1.5 s before and between them.
std::vector<int16_t> ScriptWriter::talk(std::size_t samples) {
  std::vector<int16_t> audio;
  while (audio.size() < samples) {
    audio.resize(audio.size() + 3 * audio_rate_hz / 10 + draw(12 * audio_rate_hz / 10));
    if (m_background.empty()) break;
    const auto& recording = m_background[draw(m_background.size())];
    audio.insert(audio.end(), recording.begin(), recording.end());
  }
  audio.resize(samples);
  return audio;
}

/// False when the recording drawn does not fit, or the analysis does not find it here: then it says
/// nothing about a node.
bool ScriptWriter::plant(CallScript& script) {
  const Prompt& prompt = m_rule.prompts[draw(m_rule.prompts.size())];
  const auto side = static_cast<uint16_t>(draw(2));
  std::vector<int16_t>& audio = script.sides[side];
  const std::size_t room_samples = prompt.samples.size() + 2 * pause_samples;
  if (room_samples >= audio.size()) return false;
  const std::size_t begin = draw(audio.size() - room_samples);
  const auto at = audio.begin() + static_cast<std::ptrdiff_t>(begin);
  std::fill_n(at, room_samples, int16_t{0});
  std::copy(prompt.samples.begin(), prompt.samples.end(), at + pause_samples);
  find(script);
  const std::size_t start_samples = begin + pause_samples;
  const Finding wanted{Finding::Kind::sample, side, prompt.name, 0};
  const auto found =
      std::find_if(script.findings.begin(), script.findings.end(), [&](const Finding& finding) {
        return finding.same_report(wanted) && finding.block * block_samples >= start_samples;
      });
  if (found == script.findings.end()) return false;
  script.planted = {static_cast<std::size_t>(found - script.findings.begin()),
                    static_cast<int64_t>(start_samples) * 1000000 / audio_rate_hz};
  return true;
}

void ScriptWriter::find(CallScript& script) const {
  script.findings.clear();
  for (uint16_t side = 0; side < 2; ++side) {
    auto findings = expected_findings(
        {script.sides[side], side, script.fates[side], script.switches}, m_rule, m_drift_frames);
    std::move(findings.begin(), findings.end(), std::back_inserter(script.findings));
  }
}

// Not std::uniform_int_distribution: which numbers it draws is each library's own affair.
std::size_t ScriptWriter::draw(std::size_t below) { return m_random() % below; }

}  // namespace cv::tools
