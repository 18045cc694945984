// The command as its users run it, over real prompts. That its lines are a node's is the demo's to show.

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

#include "support/recordings.h"
#include "support/run_command.h"
#include "support/sound_folder.h"
#include "tools/text_file.h"

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
    const std::size_t channels = right.empty() ? 1 : 2;
    std::vector<int16_t> frames(channels * std::max(left.size(), right.size()));
    for (std::size_t i = 0; i < left.size(); ++i) frames[channels * i] = left[i];
    for (std::size_t i = 0; i < right.size(); ++i) frames[2 * i + 1] = right[i];
    test::write_sound(m_folder / (name + ".wav"), frames, 8000, static_cast<int>(channels));
    return m_folder / (name + ".wav");
  }

  test::CommandRun analyse(const std::vector<std::string>& more) const {
    return test::run_command(m_analyse, more);
  }

  test::TemporaryFolder m_folder;
  const std::vector<std::string> m_analyse = {
      "analyse", "--samples", m_folder / "samples", "--rules", m_folder / "rules.json",
      "--rule",  "1"};
  std::vector<int16_t> m_known, m_unknown;
};

std::size_t count(const std::string& part, const std::string& text) {
  std::size_t found = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; ++at) ++found;
  return found;
}

TEST_F(Analyse, ACallIsTheSameHoweverItsSidesAreStored) {
  const std::string left = sound("left", m_unknown), right = sound("right", m_known);
  const auto lines = [&](std::vector<std::string> recordings) {
    recordings.insert(recordings.end(), {"--uuid", "00112233-4455-6677-8899-aabbccddeeff",
                                         "--timestamp", "77", "--config-version", "9"});
    const auto run = analyse(recordings);
    EXPECT_EQ(run.status, exit_done) << run.err;
    return run.out;
  };
  const std::string both = lines({sound("both", m_unknown, m_known)});
  EXPECT_EQ(count("audio_activity", both), 2u) << both;
  EXPECT_EQ(count(R"({"type": "corvanth_detection", "session_uuid": )"
                  R"("00112233-4455-6677-8899-aabbccddeeff", "session_timestamp": 77, )"
                  R"("version": 9, "call_side": "terminator", )",
                  both),
            1u)
      << both;
  EXPECT_EQ(lines({"--pair", left, right}), both);
  // One side by itself: what the whole call has of it.
  const std::string one = lines({"--side", "terminator", right});
  EXPECT_EQ(count("terminator", one), 2u) << one;
  EXPECT_EQ(count("originator", one), 0u) << one;
  EXPECT_NE(both.find(one.substr(one.find("corvanth_detection"))), both.npos);
}

TEST_F(Analyse, TheNodesSettingsHold) {
  const std::string known = sound("known", m_known);
  const std::string config =
      m_folder.write("node.conf", "# a node's\nreport_on_call_termination = true\n");
  EXPECT_TRUE(analyse({known, "--config", config}).prints("corvanth_sample_match"));
  const auto activity = analyse({known, "--args", "report_transfer_disabled=sample_detection"});
  EXPECT_EQ(count("\n", activity.out), 1u) << "the activity alone: " << activity.out;
  EXPECT_FALSE(analyse({"--features", "samples", known}).prints("audio_activity"));
  const auto refused = analyse({known, "--args", "audio_detection_drift=9"});
  EXPECT_EQ(refused.status, exit_failed);
  EXPECT_TRUE(refused.says("must not exceed")) << refused.err;
  m_folder.write("rules.json", R"({"rules": [{"id": 2, "samples": ["*"]}]})");
  const std::string kept = m_folder.write("index", "of before");
  EXPECT_TRUE(analyse({known, "--index", kept}).says("rule 1 finds no recording"));
  EXPECT_EQ(std::filesystem::file_size(kept), 9u) << "nothing to write, nothing written";
}

/// The lines that hold `part`.
std::vector<std::string> lines_with(const std::string& part, const std::string& path) {
  std::vector<std::string> found;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.find(part) != line.npos) found.push_back(line);
  }
  return found;
}

TEST_F(Analyse, TablesHoldEveryFrameAndTheScoresOfWhatCameNearest) {
  const std::string known = sound("a, \"b\"", m_known, m_unknown), page = m_folder / "page.html";
  const std::string frames = m_folder / "frames", scores = m_folder / "scores";
  const auto watched =
      analyse({known, "--csv", frames, "--csv-scores", scores, "--tracks", "1", "--track", "4"});
  const std::string of_known = "\"" + m_folder.path() + "/a, \"\"b\"\".wav\",";
  const std::size_t longer = std::max(m_known.size(), m_unknown.size());
  EXPECT_EQ(lines_with(of_known, frames).size(), 2 * ((longer + 159) / 160 * 160 / 128 - 1))
      << "as packets hold it";
  // Recording 2 is detected in the frame in which its score reaches the threshold.
  std::string detected;
  for (const std::string& line : lines_with(",2,4.5,", frames)) {
    if (line.ends_with(",2")) detected += line.substr(line.find(",2,4.5,") + 7);
  }
  ASSERT_NE(detected, "");
  EXPECT_GE(std::stod(detected), 4.5) << detected;
  std::set<std::string> tracks;
  for (const std::string& line : lines_with(",originator,", scores)) {
    const auto id = line.find(",originator,") + std::strlen(",originator,");
    tracks.insert(line.substr(id, line.find(',', id) - id));
  }
  EXPECT_EQ(tracks.size(), 3u) << "found, nearest, named";
  // Looking changes nothing.
  EXPECT_EQ(analyse({known}).out, watched.out);
  EXPECT_EQ(analyse({known, "--plot", page}).out, watched.out);
  EXPECT_TRUE(analyse({known, known, "--plot", page}).says("one --plot for 2 recordings"));
  const std::string index = m_folder.write("index", "of an earlier run");
  EXPECT_TRUE(analyse({known, "--index", index, "--plot", m_folder / "nowhere/page.html"})
                  .says("cannot be written"));
  std::string error;
  EXPECT_EQ(read_file(index, error), "of an earlier run");
  EXPECT_TRUE(analyse({known, "--track", "40"}).says("rule 1 has no sample named 40"));
}

TEST_F(Analyse, WhatIsNoRecordingIsNamedAndTheOthersAreAnalysed) {
  const std::string good = sound("good", m_known);
  test::write_sound(m_folder / "three.wav", std::vector<int16_t>(3000), 8000, 3);
  std::filesystem::create_directory(m_folder / "bare");
  const std::pair<std::string, const char*> table[] = {
      {m_folder / "nowhere.wav", "No such file"},
      {m_folder.write("text.wav", "no audio at all, but long enough to hold a header of some kind"),
       ""},
      {sound("none", {}), "there is no audio in it"},
      {m_folder / "three.wav", "it has 3 channels, and at most 2 are taken"},
      {m_folder / "bare", "there is no recording in it"},
  };
  for (const auto& [path, reason] : table) {
    const auto run = analyse({path, good});
    EXPECT_EQ(run.status, exit_failed);
    EXPECT_TRUE(run.says("corvanth: " + path + ": ") && run.says(reason)) << run.err;
    EXPECT_EQ(count("corvanth_detection", run.out), 1u) << path << "\n" << run.out;
  }
}

TEST_F(Analyse, DoesNotPrintIntoItsFilesWhenStandardOutputCameClosed) {
  auto arguments = m_analyse;
  arguments.insert(arguments.end(), {sound("call", m_known), "--index", m_folder / "index"});
  EXPECT_EXIT(
      {
        ::close(STDIN_FILENO);
        ::close(STDOUT_FILENO);
        std::exit(test::run_printing(arguments));
      },
      testing::ExitedWithCode(exit_failed), "standard output cannot be written");
}

}  // namespace
}  // namespace cv::tools
