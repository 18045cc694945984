#include <gtest/gtest.h>

#include "support/recordings.h"
#include "support/run_command.h"
#include "support/sound_folder.h"
#include "tools/configd/rules_file.h"
#include "tools/text_file.h"

namespace cv::tools {
namespace {

/// A site of eight prompts, and a folder of other speech.
class EvaluateCommand : public testing::Test {
 protected:
  EvaluateCommand() {
    m_prompts.resize(8);
    m_speech.resize(10);
    for (std::size_t i = 0; i < m_prompts.size(); ++i) {
      write("samples/p" + std::to_string(i) + ".wav", m_prompts[i].samples);
    }
    for (std::size_t i = 0; i < m_speech.size(); ++i) {
      write("speech/s" + std::to_string(i) + ".wav", m_speech[i].samples);
    }
    m_rules = m_folder.write("rules.json", R"({"rules": [{"id": 3, "samples": ["*"]}]} // ours)");
  }

  void write(const std::string& name, const std::vector<int16_t>& samples, int channels = 1) {
    test::write_sound(m_folder / name, samples, 8000, channels);
  }
  test::CommandRun evaluate(const std::vector<std::string>& more) const {
    return test::run_command({"evaluate", "--samples", m_folder / "samples", "--rules", m_rules},
                             more);
  }
  std::string read(const std::string& name) const {
    std::string error;
    return read_file(m_folder / name, error).value_or(error);
  }

  test::TemporaryFolder m_folder;
  std::vector<test::Recording> m_prompts = test::english_prompts(24000);
  std::vector<test::Recording> m_speech = test::french_prompts(16000);
  std::string m_rules;
};

TEST_F(EvaluateCommand, JudgesLabelledRecordings) {
  // Left: speech, prompt 4 at 2.5 s; right: prompt 7 at 1 s, prompt 2, of which the truth knows nothing.
  std::vector<int16_t> both;
  const auto put = [&](std::size_t side, double at_s, const std::vector<int16_t>& samples) {
    auto at = static_cast<std::size_t>(at_s * 8000);
    both.resize(std::max(both.size(), 2 * (at + samples.size())));
    for (const int16_t sample : samples) both.at(2 * at++ + side) = sample;
  };
  put(0, 0, {m_speech[0].samples.begin(), m_speech[0].samples.begin() + 12000});
  put(0, 2.5, m_prompts[4].samples);
  put(1, 1, m_prompts[7].samples);
  put(1, 3 + static_cast<double>(m_prompts[7].samples.size()) / 8000, m_prompts[2].samples);
  write("calls/a.wav", both, 2);
  write("calls/b.wav", m_prompts[1].samples);
  const std::string truth = m_folder.write("calls/truth.tsv",
                                           "a.wav\toriginator\tp4\t2.5\n"
                                           "a.wav\tterminator\tp7\t1\nb.wav\t-\t-\n");
  const auto nowhere = evaluate({"--truth", truth, "--csv", m_folder / "nowhere/out.csv"});
  EXPECT_TRUE(nowhere.says("cannot be created") && nowhere.out.empty())
      << "and not when all is done";
  const auto run = evaluate({"--truth", truth, "--thresholds", "5:5:1", "--csv",
                             m_folder / "all.csv", "--csv-samples", m_folder / "samples.csv"});
  ASSERT_EQ(run.status, 0) << run.err;
  // Played, found, share, wrong, stray: prompt 2 is stray; prompt 1 is in what is called background.
  EXPECT_NE(read("all.csv").find("\n4,2,0,0,1,clean,5,2,2,1,0,1,"), std::string::npos) << run.out;
  const std::string samples = read("samples.csv");
  for (const char* row : {"p4,1,1,1,0,0,", "p2,0,0,0,0,1,", "p1,0,0,0,0,0,"}) {
    const auto at = samples.find(std::string("\n4,2,0,0,1,5,clean,") + row);
    ASSERT_NE(at, samples.npos) << row << "\n" << samples;
    const auto end = samples.find('\n', at + 1);
    EXPECT_EQ(samples.substr(end - 2, 2), row[1] == '1' ? ",1" : ",0") << "false findings";
  }

  const std::pair<const char*, const char*> bad_truths[] = {
      {"#\na.wav\toriginator\tp99\t1\n", "truth.tsv: line 2: the rule looks for no sample \"p99\""},
      {"c.wav\toriginator\tp4\t1\n", "truth.tsv: line 1: there is no recording"},
      {"b.wav\toriginator\tp1\t0\nb.wav\tterminator\tp1\t0\n", "b.wav: it has one channel"},
      {"b.wav\toriginator\tp1\t900\n", "b.wav: p1 is said to start behind its end"},
      {"truth.tsv\toriginator\tp1\t0\n", "truth.tsv: "},
  };
  for (const auto& [text, complaint] : bad_truths) {
    m_folder.write("calls/truth.tsv", text);
    const auto refused = evaluate({"--truth", truth});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.says(complaint)) << refused.err;
  }
}

TEST_F(EvaluateCommand, GivesTheSameOnAnyNumberOfThreadsAndRecommends) {
  const auto with_jobs = [&](const char* jobs) {
    return evaluate({"--background", m_folder / "speech", "--plant", "8", "--thresholds", "3:6:0.5",
                     "--conditions", "clean,offset+noise:5", "--recommend", "60", "--jobs", jobs,
                     "--output", m_folder / jobs, "--csv", m_folder / (jobs + std::string(".csv")),
                     "--plot", m_folder / (jobs + std::string(".html"))});
  };
  const auto run = with_jobs("1");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(run.prints("clean                      8       8  100.0")) << run.out;
  ASSERT_EQ(with_jobs("3").status, 0);
  for (const std::string kind : {"", ".csv", ".html"})
    EXPECT_EQ(read("1" + kind), read("3" + kind));

  EXPECT_TRUE(read("1").ends_with("]}]} // ours"));
  std::string error;
  const auto rules = parse_rules(read("1"), error);
  ASSERT_TRUE(rules) << error;
  EXPECT_EQ(rules->rules.at(0).samples.size(), 9u) << "the pattern and each";
  EXPECT_LT(rules->rules[0].samples.back().threshold, 4.5);

  // Of recordings with one audio, the rule's own.
  write("samples/0.wav", m_prompts[1].samples);
  m_rules = m_folder.write("one.json", R"({"rules": [{"id": 3, "samples": ["p1.wav"]}]})");
  std::vector<std::string> one = {"--background", m_folder / "speech", "--plant", "1"};
  one.insert(one.end(), {"--recommend", "60", "--output", m_folder / "one"});
  EXPECT_EQ(evaluate(one).status, 0);
  EXPECT_NE(read("one").find(R"([{"file": "p1.wav", "threshold": )"), std::string::npos);
  // What was found is written even if it makes no recommendation possible.
  one.insert(one.end(), {"--thresholds", "0.1:0.1:1", "--csv", m_folder / "one.csv"});
  EXPECT_TRUE(evaluate(one).says("no thresholds keep false findings so rare"));
  EXPECT_NE(read("one.csv").find("\n4,2,0,0,1,clean,0.1,1,1,1,"), std::string::npos);
  m_rules = m_folder / "rules.json";

  // Nothing is written over.
  m_folder.write("rules.recommended.json", "ours, too");
  std::vector<std::string> again = {
      "--background", m_folder / "speech", "--plant", "1", "--recommend", "60"};
  EXPECT_TRUE(evaluate(again).says("rules.recommended.json is there already"));
  EXPECT_EQ(read("rules.recommended.json"), "ours, too");
  again.insert(again.end(), {"--output", m_rules});
  EXPECT_EQ(evaluate(again).status, 2);
}

}  // namespace
}  // namespace cv::tools
