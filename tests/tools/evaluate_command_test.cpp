#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

#include "support/recordings.h"
#include "support/sound_folder.h"
#include "support/temporary_folder.h"
#include "tools/command_line.h"
#include "tools/configd/rules_file.h"
#include "tools/json_text.h"

namespace cv::tools {
namespace {

/// A site of a dozen prompts, and a folder of other speech.
class EvaluateCommand : public testing::Test {
 protected:
  EvaluateCommand() {
    m_prompts = test::english_prompts(24000);
    m_prompts.resize(12);
    m_speech = test::french_prompts(16000);
    m_speech.resize(40);
    m_folder.write("samples/none", "");
    m_folder.write("speech/none", "");
    m_folder.write("calls/none", "");
    for (std::size_t i = 0; i < m_prompts.size(); ++i) {
      write("samples/p" + std::to_string(i) + ".wav", m_prompts[i].samples, 1);
    }
    for (std::size_t i = 0; i < m_speech.size(); ++i) {
      write("speech/s" + std::to_string(i) + ".wav", m_speech[i].samples, 1);
    }
    m_rules = m_folder.write("rules.json", R"({"rules": [{"id": 3, "samples": ["*"]}]} // ours)");
  }

  void write(const std::string& name, const std::vector<int16_t>& samples, int channels) {
    test::write_sound(m_folder / name, samples, 8000, channels);
  }

  /// The exit status of `corvanth evaluate` with the site and these arguments.
  int run(std::vector<std::string> arguments) {
    std::vector<std::string> all = {"corvanth",           "evaluate", "--samples",
                                    m_folder / "samples", "--rules",  m_rules};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<const char*> argv;
    argv.reserve(all.size());
    for (const std::string& argument : all) argv.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = run_command_line(static_cast<int>(argv.size()), argv.data());
    m_out = testing::internal::GetCapturedStdout();
    m_err = testing::internal::GetCapturedStderr();
    return status;
  }

  std::string read(const std::string& name) const {
    std::ifstream file(m_folder / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  test::TemporaryFolder m_folder;
  std::vector<test::Recording> m_prompts, m_speech;
  std::string m_rules;
  std::string m_out;
  std::string m_err;
};

/// The row of the CSV that begins like this, without its beginning.
std::string row_of(const std::string& csv, const std::string& beginning) {
  const auto at = csv.find("\n" + beginning);
  if (at == csv.npos) return "none";
  const auto begin = at + 1 + beginning.size();
  return csv.substr(begin, csv.find('\n', begin) - begin);
}

TEST_F(EvaluateCommand, JudgesLabelledRecordings) {
  // Left: speech, prompt 4 at 2.5 s; right: prompt 7 at 1 s, prompt 2, of which the truth knows nothing.
  std::vector<int16_t> left(20000), right(8000);
  std::copy_n(m_speech[0].samples.begin(), 12000, left.begin());
  const auto append = [](std::vector<int16_t>& side, const std::vector<int16_t>& samples) {
    side.insert(side.end(), samples.begin(), samples.end());
  };
  append(left, m_prompts[4].samples);
  append(right, m_prompts[7].samples);
  right.resize(right.size() + 16000);
  append(right, m_prompts[2].samples);
  left.resize(std::max(left.size(), right.size()));
  right.resize(left.size());
  std::vector<int16_t> both;
  for (std::size_t i = 0; i < left.size(); ++i) both.insert(both.end(), {left[i], right[i]});
  write("calls/a.wav", both, 2);
  write("calls/b.wav", m_prompts[1].samples, 1);
  m_folder.write("calls/truth.tsv",
                 "a.wav\toriginator\tp4\t2.5\na.wav\tterminator\tp7\t1\nb.wav\t-\t-\n");
  ASSERT_EQ(run({"--truth", m_folder / "calls/truth.tsv", "--thresholds", "5:5:1", "--csv",
                 m_folder / "all.csv", "--csv-samples", m_folder / "samples.csv"}),
            0)
      << m_err;
  // Played, found, share, wrong, stray: prompt 2 is stray; prompt 1 is in what is called background.
  EXPECT_TRUE(row_of(read("all.csv"), "4,2,0,0,1,clean,5,").starts_with("2,2,1,0,1,")) << m_out;
  const std::string samples = read("samples.csv");
  EXPECT_TRUE(row_of(samples, "4,2,0,0,1,5,clean,p4,").starts_with("1,1,1,0,0,"));
  EXPECT_TRUE(row_of(samples, "4,2,0,0,1,5,clean,p2,").starts_with("0,0,0,0,1,"));
  EXPECT_TRUE(row_of(samples, "4,2,0,0,1,5,clean,p1,").ends_with(",1")) << samples;

  const struct {
    const char* truth;
    const char* error;
  } table[] = {
      {"a.wav\toriginator\tp4\n", "truth.tsv: line 1: the start"},
      {"#\na.wav\toriginator\tp99\t1\n", "truth.tsv: line 2: the rule looks for no sample \"p99\""},
      {"c.wav\toriginator\tp4\t1\n", "truth.tsv: line 1: there is no recording"},
      {"b.wav\toriginator\tp1\t0\nb.wav\tterminator\tp1\t0\n", "b.wav: it has one channel"},
      {"b.wav\toriginator\tp1\t900\n", "b.wav: p1 is said to start behind its end"},
      {"truth.tsv\toriginator\tp1\t0\n", "truth.tsv: "},
  };
  for (const auto& row : table) {
    m_folder.write("calls/truth.tsv", row.truth);
    EXPECT_EQ(run({"--truth", m_folder / "calls/truth.tsv"}), 1);
    EXPECT_NE(m_err.find(row.error), m_err.npos) << m_err;
  }
}

TEST_F(EvaluateCommand, GivesTheSameOnAnyNumberOfThreadsAndRecommends) {
  const auto evaluate = [&](const char* jobs, const std::string& name) {
    return run({"--background", m_folder / "speech", "--plant", "20", "--conditions",
                "clean,offset+gsm,noise:5", "--jobs", jobs, "--recommend", "60", "--output",
                m_folder / (name + ".json"), "--csv", m_folder / (name + ".csv"), "--plot",
                m_folder / (name + ".html")});
  };
  ASSERT_EQ(evaluate("1", "one"), 0) << m_err;
  ASSERT_EQ(evaluate("3", "three"), 0) << m_err;
  for (const std::string kind : {".json", ".csv", ".html"}) {
    EXPECT_EQ(read("one" + kind), read("three" + kind));
  }
  EXPECT_NE(m_out.find("clean                     20      20  100.0"), m_out.npos) << m_out;

  std::string error;
  const auto rules = parse_rules(read("one.json"), error);
  ASSERT_TRUE(rules) << error;
  EXPECT_EQ(rules->rules.at(0).samples.size(), 13u);
  for (std::size_t i = 1; i < rules->rules[0].samples.size(); ++i) {
    EXPECT_LT(rules->rules[0].samples[i].threshold, 5);
  }
  EXPECT_TRUE(read("one.json").ends_with("]}]} // ours"));
  EXPECT_EQ(read("rules.json"), R"({"rules": [{"id": 3, "samples": ["*"]}]} // ours)");

  const std::string page = read("one.html");
  const std::string mark = "<script id=\"data\" type=\"application/json\">";
  const auto begin = page.find(mark) + mark.size();
  rapidjson::Document data;
  ASSERT_TRUE(parse_json(page.substr(begin, page.find("</script>", begin) - begin),
                         JsonDialect::strict, data, error))
      << error;
  EXPECT_EQ(data["settings"][0]["levels"].Size(), 51u);
  EXPECT_EQ(data["settings"][0]["levels"][0]["found"].Size(), 3u);
  EXPECT_EQ(data["settings"][0]["levels"][0]["found"][0].GetDouble(), 1);
  EXPECT_EQ(page.find("://"), page.npos);

  // Nothing is written over.
  const std::vector<std::string> again = {
      "--background", m_folder / "speech", "--plant", "1", "--recommend", "60"};
  EXPECT_EQ(run(again), 0) << m_err;
  EXPECT_EQ(run(again), 1);
  EXPECT_NE(m_err.find("rules.recommended.json is there already"), m_err.npos) << m_err;
  auto over = again;
  over.insert(over.end(), {"--output", m_rules});
  EXPECT_EQ(run(over), 2);
}

}  // namespace
}  // namespace cv::tools
