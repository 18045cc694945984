// Faults planted among clean prompts, one kind after the other: each is found, and nothing else is.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <set>

#include "support/recordings.h"
#include "support/sound_folder.h"
#include "tools/lint/lint_command.h"
#include "tools/lint/rule_checks.h"

namespace cv::tools {
namespace {

using Samples = std::vector<int16_t>;

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

Samples tone(double frequency_hz, double seconds) {
  Samples samples;
  for (const float value : test::sine(frequency_hz, 0.3, 8000, seconds)) {
    samples.push_back(static_cast<int16_t>(32767 * value));
  }
  return samples;
}

class Lint : public testing::Test {
 protected:
  Lint() {
    std::filesystem::create_directory(m_folder / "samples");
    record("a.wav", prompt("vm-newpassword"));
    record("b.wav", prompt("privacy-prompt"));
  }

  void record(const std::string& name, const Samples& samples, int rate_hz = 8000) {
    test::write_sound(m_folder / "samples/" + name, samples, rate_hz, 1);
  }
  /// Of rule 1.
  void rule(const std::string& samples) { m_samples = samples; }

  /// "kind recording", for pairs with " other", as a set.
  std::set<std::string> found() {
    LintOptions options = m_options;
    options.samples = m_folder / "samples";
    options.rules = m_folder.write("rules.json",
                                   "{\"rules\": [{\"id\": 1, \"samples\": [" + m_samples + "]}]}");
    std::string error;
    const auto result = lint(options, error);
    EXPECT_TRUE(result) << error;
    std::set<std::string> lines;
    if (!result) return lines;
    m_result = *result;
    for (const LintFinding& finding : result->findings) {
      lines.insert(std::string(finding.kind) + " " + finding.recording +
                   (finding.other.empty() ? "" : " " + finding.other));
    }
    return lines;
  }

  test::TemporaryFolder m_folder;
  LintOptions m_options;
  LintResult m_result;
  std::string m_samples = "\"*\"";
};

TEST_F(Lint, IsSilentOnCleanPrompts) {
  for (const char* name :
       {"vm-review", "vm-mailboxfull", "ss-noservice", "invalid", "pls-hold-while-try"}) {
    record(std::string(name) + ".wav", prompt(name));
  }
  EXPECT_EQ(found(), std::set<std::string>());
  EXPECT_EQ(m_result.recordings, 7u);
  EXPECT_EQ(lint_text(m_result), "nothing wrong in 7 recordings and 1 rule\n");
}

TEST_F(Lint, FindsEachPlantedFaultAndNoOther) {
  const Samples speech = prompt("vm-review");
  const struct {
    Samples samples;
    int rate_hz;
    std::set<std::string> expected;
  } table[] = {
      {Samples(speech.begin(), speech.begin() + 12000), 8000, {"short x.wav"}},
      {amplified(speech, 0.02), 8000, {"quiet x.wav"}},
      {amplified(speech, 8), 8000, {"clipped x.wav"}},
      {joined(speech, silence(1.2 * static_cast<double>(speech.size()) / 8000)),
       8000,
       {"silence x.wav"}},
      {joined(silence(0.8), speech), 8000, {"leading-silence x.wav"}},
      {joined(speech, tone(425, 0.5)), 8000, {"tone x.wav"}},
      {speech, 7000, {"rate x.wav"}},
      {speech, 8001, {"rate x.wav"}},
      {silence(3), 8000, {"unusable x.wav"}},
      {{}, 8000, {"unusable x.wav"}},
      {prompt("vm-newpassword"), 8000, {"duplicate x"}},
      {joined(speech, prompt("privacy-prompt")),
       8000,
       {"contains b.wav x.wav", "contains x.wav b.wav"}},
      {amplified(prompt("privacy-prompt"), 0.9), 8000, {"alike b.wav x.wav", "alike x.wav b.wav"}},
  };
  for (const auto& row : table) {
    record("x.wav", row.samples, row.rate_hz);
    EXPECT_EQ(found(), row.expected) << lint_text(m_result);
  }
}

TEST_F(Lint, FindsWhatRulesNameInVain) {
  const struct {
    std::string samples;
    std::set<std::string> expected;
  } table[] = {
      {R"("*", "gone.wav")", {"missing gone.wav"}},
      {R"("*", "none/*")", {"missing none/*"}},
      {R"("a.wav", {"file": "b.wav", "name": "a"})", {"name a.wav b.wav"}},
      {R"("a.wav", {"file": "b.wav", "threshold": 3.8})", {"threshold b.wav"}},
      {R"("a.wav", {"file": "b.wav", "threshold": 30})", {"missed b.wav"}},
  };
  for (const auto& row : table) {
    rule(row.samples);
    EXPECT_EQ(found(), row.expected) << row.samples << "\n" << lint_text(m_result);
  }
  m_folder.write("samples/broken.wav", "no audio");
  record("say \"when\".wav", prompt("vm-review"));
  rule("\"*\"");
  EXPECT_EQ(found(), (std::set<std::string>{"unusable broken.wav", "name say \"when\".wav"}));
  m_options.ignored = {"name"};
  EXPECT_EQ(found(), std::set<std::string>{"unusable broken.wav"});
  EXPECT_NE(lint_json(m_result).find(R"("kind":"unusable","recording":"broken.wav","text":)"),
            std::string::npos);
}

TEST_F(Lint, TakesRecommendedThresholdsInPlaceOfTheRuleOfThumb) {
  m_options.recommended =
      m_folder.write("good.json", R"({"thresholds": {"a.wav": 4.6, "*": 4.5}})");
  EXPECT_EQ(found(), std::set<std::string>{"threshold a.wav"});
  m_folder.write("good.json", R"({"thresholds": {"b.wav": 4.4}})");
  EXPECT_EQ(found(), std::set<std::string>());
  m_folder.write("good.json",
                 R"({"rules": [{"id": 1, "samples": [{"file": "b.wav", "threshold": 5}]},
                                           {"id": 2, "threshold": 9, "samples": ["*"]}]})");
  EXPECT_EQ(found(), std::set<std::string>{"threshold b.wav"});
  for (const char* text :
       {"{", "{}", R"({"thresholds": 4})", R"({"thresholds": {"a.wav": "4"}})"}) {
    std::string error;
    EXPECT_FALSE(parse_recommended(text, error)) << text;
    EXPECT_NE(error, "");
  }
}

TEST(LeastThreshold, GrowsWithSamplesAndDrift) {
  EXPECT_DOUBLE_EQ(least_threshold(1, 1, 2), least_threshold(1, 20, 2));
  EXPECT_DOUBLE_EQ(least_threshold(1, 550, 2), 4.4);
  EXPECT_LT(least_threshold(1, 20, 2), least_threshold(1, 100, 2));
  EXPECT_LT(least_threshold(0, 100, 2), least_threshold(1, 100, 2));
  EXPECT_LT(least_threshold(1, 100, 2), least_threshold(1, 100, 1));
}

}  // namespace
}  // namespace cv::tools
