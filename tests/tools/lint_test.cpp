// Faults planted among clean prompts, one kind after the other: each is found, and nothing else is.
#include <algorithm>
#include <gtest/gtest.h>
#include <set>

#include "support/recordings.h"
#include "support/sound_folder.h"
#include "tools/lint/lint_command.h"
#include "tools/lint/rule_checks.h"

namespace cv::tools {
namespace {

using Samples = std::vector<int16_t>;
using Lines = std::set<std::string>;

Samples prompt(const std::string& name) {
  static const auto prompts = test::english_prompts(2 * 8000);
  for (const auto& recording : prompts) {
    if (recording.name == name) return recording.samples;
  }
  throw std::runtime_error("no prompt " + name);
}

Samples joined(Samples first, const Samples& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Samples amplified(Samples samples, double gain) {
  for (int16_t& sample : samples) {
    sample = static_cast<int16_t>(std::clamp(std::lrint(sample * gain), -32768L, 32767L));
  }
  return samples;
}

Samples silence(double seconds) { return Samples(static_cast<std::size_t>(8000 * seconds)); }

class Lint : public testing::Test {
 protected:
  Lint() {
    record("a.wav", prompt("vm-newpassword"));
    record("b.wav", prompt("privacy-prompt"));
  }

  void record(const std::string& name, const Samples& samples, int rate_hz = 8000) {
    test::write_sound(m_folder / "samples/" + name, samples, rate_hz, 1);
  }

  /// "kind recording", for pairs with " other", of a rule of these samples.
  Lines found(const std::string& samples = "\"*\"") {
    m_options.samples = m_folder / "samples";
    m_options.rules =
        m_folder.write("rules.json", R"({"rules": [{"id": 1, "samples": [)" + samples + "]}]}");
    std::string error;
    m_result = lint(m_options, error).value();
    Lines lines;
    for (const LintFinding& finding : m_result.findings) {
      lines.insert(std::string(finding.kind) + " " + finding.recording +
                   (finding.other.empty() ? "" : " " + finding.other));
    }
    return lines;
  }

  test::TemporaryFolder m_folder;
  LintOptions m_options;
  LintResult m_result;
};

TEST_F(Lint, FindsEachPlantedFaultAndNoOther) {
  const Samples speech = prompt("vm-review"), privacy = prompt("privacy-prompt");
  Samples tone;
  for (const float value : test::sine(425, 0.3, 8000, 0.5)) {
    tone.push_back(static_cast<int16_t>(32767 * value));
  }
  const struct {
    Samples samples;
    int rate_hz;
    Lines expected;
  } table[] = {
      {speech, 8000, {}},
      {prompt("ss-noservice"), 8000, {}},
      {Samples(speech.begin(), speech.begin() + 12000), 8000, {"short x.wav"}},
      {amplified(speech, 0.02), 8000, {"quiet x.wav"}},
      {amplified(speech, 8), 8000, {"clipped x.wav"}},
      {joined(speech, Samples(speech.size() * 6 / 5)), 8000, {"silence x.wav"}},
      {joined(silence(0.5), speech), 8000, {"leading-silence x.wav"}},
      {joined(speech, tone), 8000, {"tone x.wav"}},
      {speech, 7000, {"rate x.wav"}},
      {speech, 8001, {"rate x.wav"}},
      {silence(3), 8000, {"unusable x.wav"}},
      {{}, 8000, {"unusable x.wav"}},
      {prompt("vm-newpassword"), 8000, {"duplicate x"}},
      {joined(speech, privacy), 8000, {"contains b.wav x.wav", "contains x.wav b.wav"}},
      {amplified(privacy, 0.9), 8000, {"alike b.wav x.wav", "alike x.wav b.wav"}},
  };
  for (const auto& row : table) {
    record("x.wav", row.samples, row.rate_hz);
    EXPECT_EQ(found(), row.expected) << lint_text(m_result);
  }
}

TEST_F(Lint, FindsWhatRulesNameInVain) {
  const std::pair<const char*, Lines> table[] = {
      {R"("*", "gone.wav", "none/*")", {"missing gone.wav", "missing none/*"}},
      {R"("a.wav", {"file": "b.wav", "name": "a"})", {"name a.wav b.wav"}},
      {R"("a.wav", {"file": "b.wav", "threshold": 3.8})", {"threshold b.wav"}},
      {R"("a.wav", {"file": "b.wav", "threshold": 30})", {"missed b.wav"}},
  };
  for (const auto& [samples, expected] : table) EXPECT_EQ(found(samples), expected) << samples;
  m_folder.write("samples/broken\xff.wav", "no audio");
  record("say \"when\".wav", prompt("vm-review"));
  EXPECT_EQ(found(), (Lines{"unusable broken\xff.wav", "name say \"when\".wav"}));
  m_options.ignored = {"name"};
  EXPECT_EQ(found(), Lines{"unusable broken\xff.wav"});
  EXPECT_NE(lint_json(m_result).find(R"("kind":"unusable","recording":"broken?.wav","text":)"),
            std::string::npos);
  record("0.wav", prompt("privacy-prompt"));  // as b.wav, but no rule's
  EXPECT_EQ(found(R"("a.wav", {"file": "b.wav", "threshold": 3.8})"),
            (Lines{"threshold b.wav", "unusable broken\xff.wav"}));
}

TEST_F(Lint, TakesRecommendedThresholdsInPlaceOfTheRuleOfThumb) {
  const std::pair<const char*, Lines> table[] = {
      {R"({"thresholds": {"a.wav": 4.6, "*": 4.5}})", {"threshold a.wav"}},
      {R"({"thresholds": {"b.wav": 4.4}})", {}},
      {R"({"rules": [{"id": 1, "samples": [{"file": "b.wav", "threshold": 5}]},
                     {"id": 2, "threshold": 9, "samples": ["*"]}]})",
       {"threshold b.wav"}},
  };
  for (const auto& [recommended, expected] : table) {
    m_options.recommended = m_folder.write("good.json", recommended);
    EXPECT_EQ(found(), expected) << recommended;
  }
  for (const char* text :
       {"{", "{}", R"({"thresholds": 4})", R"({"thresholds": {"a.wav": "4"}})"}) {
    std::string error;
    EXPECT_FALSE(parse_recommended(text, error)) << text;
    EXPECT_NE(error, "");
  }
  // The rule of thumb grows with samples and drift.
  EXPECT_DOUBLE_EQ(least_threshold(1, 1, 2), least_threshold(1, 20, 2));
  EXPECT_DOUBLE_EQ(least_threshold(1, 550, 2), 4.4);
  EXPECT_LT(least_threshold(1, 20, 2), least_threshold(1, 100, 2));
  EXPECT_LT(least_threshold(0, 100, 2), least_threshold(1, 100, 2));
  EXPECT_LT(least_threshold(1, 100, 2), least_threshold(1, 100, 1));
}

}  // namespace
}  // namespace cv::tools
