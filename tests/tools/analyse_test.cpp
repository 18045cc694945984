// The command as its users run it, over real prompts. That its lines are a node's is the demo's to show.

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "support/recordings.h"
#include "support/sound_folder.h"
#include "tools/command_line.h"

namespace cv::tools {
namespace {

class Analyse : public testing::Test {
 protected:
  Analyse() {
    const auto prompts = test::english_prompts(3 * 8000);
    for (std::size_t i = 0; i < 5; ++i) {
      sound("samples/" + std::to_string(i), prompts.at(20 * i).samples);  // neighbours share words
    }
    m_known = prompts[2 * 20].samples;
    m_unknown = test::french_prompts(3 * 8000).front().samples;
    m_folder.write("rules.json", R"({"rules": [{"id": 1, "samples": ["*"]}]})");
  }

  /// Sides of one file; the second may be missing. Its path.
  std::string sound(const std::string& name, const std::vector<int16_t>& left,
                    const std::vector<int16_t>& right = {}) {
    m_folder.write(name + ".wav", "");
    const std::size_t channels = right.empty() ? 1 : 2;
    std::vector<int16_t> frames(channels * std::max(left.size(), right.size()));
    for (std::size_t i = 0; i < left.size(); ++i) frames[channels * i] = left[i];
    for (std::size_t i = 0; i < right.size(); ++i) frames[2 * i + 1] = right[i];
    test::write_sound(m_folder / (name + ".wav"), frames, 8000, static_cast<int>(channels));
    return m_folder / (name + ".wav");
  }

  /// The exit status.
  int analyse(std::vector<std::string> more) {
    std::vector<std::string> arguments = {"corvanth",  "analyse",
                                          "--samples", m_folder / "samples",
                                          "--rules",   m_folder / "rules.json",
                                          "--rule",    "1"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    std::vector<const char*> argv;
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = run_command_line(static_cast<int>(argv.size()), argv.data());
    m_out = testing::internal::GetCapturedStdout();
    m_err = testing::internal::GetCapturedStderr();
    return status;
  }

  std::size_t count(const std::string& part) const {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = m_out.find(part, at)) != m_out.npos; ++at) ++found;
    return found;
  }

  test::TemporaryFolder m_folder;
  std::vector<int16_t> m_known, m_unknown;
  std::string m_out, m_err;
};

constexpr const char* uuid = "00112233-4455-6677-8899-aabbccddeeff";

TEST_F(Analyse, ACallIsTheSameHoweverItsSidesAreStored) {
  const std::string left = sound("left", m_unknown), right = sound("right", m_known);
  const std::vector<std::string> terms = {"--uuid",           uuid, "--timestamp", "77",
                                          "--config-version", "9"};
  const auto with_terms = [&](std::vector<std::string> more) {
    more.insert(more.end(), terms.begin(), terms.end());
    return more;
  };
  ASSERT_EQ(analyse(with_terms({sound("both", m_unknown, m_known)})), exit_done) << m_err;
  const std::string both = m_out;
  EXPECT_EQ(count("audio_activity"), 2u) << m_out;
  EXPECT_EQ(count(std::string(R"({"type": "corvanth_detection", "session_uuid": ")") + uuid +
                  R"(", "session_timestamp": 77, "version": 9, "call_side": "terminator", )"),
            1u)
      << m_out;
  EXPECT_EQ(count(R"("sample_name": "2")"), 1u);
  ASSERT_EQ(analyse(with_terms({"--pair", left, right})), exit_done) << m_err;
  EXPECT_EQ(m_out, both);
  // One side by itself: what the whole call has of it.
  ASSERT_EQ(analyse(with_terms({"--side", "terminator", right})), exit_done) << m_err;
  EXPECT_EQ(count("terminator"), 2u) << m_out;
  EXPECT_EQ(count("originator"), 0u) << m_out;
  EXPECT_NE(both.find(m_out.substr(m_out.find("corvanth_detection"))), both.npos);
}

TEST_F(Analyse, AFolderGivesTheSameLinesWhateverTheNumberOfThreads) {
  ASSERT_EQ(analyse({m_folder / "samples", "--jobs", "1", "--index", m_folder / "index"}),
            exit_done);
  const std::string alone = m_out;
  EXPECT_EQ(count("corvanth_detection"), 5u) << m_out;
  ASSERT_EQ(analyse({m_folder / "samples", "--jobs", "4"}), exit_done);
  EXPECT_EQ(m_out, alone);
  // The index says which recording a line is about.
  std::ifstream index(m_folder / "index");
  std::string id, name;
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(index >> id >> name);
    EXPECT_EQ(name, m_folder / ("samples/" + std::to_string(i) + ".wav"));
    EXPECT_EQ(count(id), 2u);
    index.ignore(1000, '\n');
  }
}

TEST_F(Analyse, TheNodesSettingsHold) {
  const std::string known = sound("known", m_known);
  const std::string config =
      m_folder.write("node.conf", "# a node's\nreport_on_call_termination = true\n");
  ASSERT_EQ(analyse({known, "--config", config}), exit_done) << m_err;
  EXPECT_EQ(count("corvanth_sample_match"), 1u) << m_out;
  ASSERT_EQ(analyse({known, "--args", "report_transfer_disabled=sample_detection"}), exit_done);
  EXPECT_EQ(count("\n"), 1u) << "the activity alone: " << m_out;
  ASSERT_EQ(analyse({"--features", "samples", known}), exit_done);
  EXPECT_EQ(count("audio_activity"), 0u);
  EXPECT_EQ(analyse({known, "--args", "audio_detection_drift=9"}), exit_failed);
  EXPECT_NE(m_err.find("must not exceed"), m_err.npos);
  m_folder.write("rules.json", R"({"rules": [{"id": 2, "samples": ["*"]}]})");
  EXPECT_EQ(analyse({known}), exit_failed);
  EXPECT_NE(m_err.find("rule 1 finds no recording"), m_err.npos);
}

std::vector<std::vector<std::string>> read_table(const std::string& path) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    rows.emplace_back(1);
    bool quoted = false;
    for (const char c : line) {
      if (c == '"') {
        quoted = !quoted;
      } else if (c == ',' && !quoted) {
        rows.back().emplace_back();
      } else {
        rows.back().back() += c;
      }
    }
  }
  return rows;
}

TEST_F(Analyse, TablesHoldEveryFrameAndTheScoresOfWhatCameNearest) {
  const std::string known = sound("a, \"b\"", m_known, m_unknown);
  ASSERT_EQ(analyse({known, "--csv", m_folder / "frames", "--csv-scores", m_folder / "scores",
                     "--tracks", "1", "--track", "4"}),
            exit_done)
      << m_err;
  const auto frames = read_table(m_folder / "frames");
  const std::size_t longer = std::max(m_known.size(), m_unknown.size());
  ASSERT_EQ(frames.size(), 1 + 2 * ((longer + 159) / 160 * 160 / 128 - 1)) << "as packets hold it";
  std::size_t detected = 0, active = 0;
  for (const auto& row : frames) {
    ASSERT_EQ(row.size(), frames[0].size());
    active += row[7] == "1";
    if (row[0] == "recording" || row.back().empty()) continue;
    ++detected;
    EXPECT_EQ(row[1], "originator");
    EXPECT_EQ(row[10] + " " + row.back(), "2 2");
    EXPECT_GE(std::stod(row[12]), std::stod(row[11])) << "score and threshold";
    EXPECT_NE(m_out.find("\"offset\": " + std::to_string(std::stoi(row[13]))), m_out.npos);
  }
  EXPECT_EQ(detected, count("corvanth_detection"));
  EXPECT_GT(active, 100u);
  std::map<std::string, std::set<std::string>> samples;
  for (const auto& row : read_table(m_folder / "scores")) samples[row[1]].insert(row[3]);
  EXPECT_EQ(samples["originator"].size(), 3u) << "found, nearest, named";
  EXPECT_EQ(samples["terminator"].count("4"), 1u);
  // Looking changes nothing.
  const std::string watched = m_out;
  ASSERT_EQ(analyse({known, "--plot", m_folder / "page.html"}), exit_done) << m_err;
  EXPECT_EQ(m_out, watched);
  EXPECT_EQ(analyse({known, known, "--plot", m_folder / "page.html"}), exit_failed);
  EXPECT_NE(m_err.find("one --plot for 2 recordings"), m_err.npos) << m_err;
  EXPECT_EQ(analyse({known, "--plot", m_folder / "nowhere/page.html"}), exit_failed);
  EXPECT_NE(m_err.find("nowhere/page.html: cannot be written"), m_err.npos) << m_err;
  ASSERT_EQ(analyse({known}), exit_done);
  EXPECT_EQ(m_out, watched);
}

TEST_F(Analyse, WhatIsNoRecordingIsNamedAndTheOthersAreAnalysed) {
  const std::string good = sound("good", m_known);
  test::write_sound(m_folder / "three.wav", std::vector<int16_t>(3000), 8000, 3);
  const struct {
    std::string path;
    std::string reason;
  } table[] = {
      {m_folder / "nowhere.wav", "No such file"},
      {m_folder.write("empty.wav", ""), ""},
      {m_folder.write("text.wav", "no audio at all, but long enough to hold a header of some kind"),
       ""},
      {sound("none", {}), "there is no audio in it"},
      {m_folder / "three.wav", "it has 3 channels, and at most 2 are taken"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(analyse({row.path, good}), exit_failed);
    EXPECT_NE(m_err.find("corvanth: " + row.path + ": "), m_err.npos) << m_err;
    EXPECT_NE(m_err.find(row.reason), m_err.npos) << m_err;
    EXPECT_EQ(count("corvanth_detection"), 1u) << m_out;
  }
  std::filesystem::create_directory(m_folder / "bare");
  EXPECT_EQ(analyse({m_folder / "bare"}), exit_failed);
  EXPECT_NE(m_err.find("there is no recording in it"), m_err.npos);
}

}  // namespace
}  // namespace cv::tools
