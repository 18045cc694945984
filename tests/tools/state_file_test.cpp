#include "tools/configd/state_file.h"

#include <filesystem>
#include <gtest/gtest.h>

#include "support/temporary_folder.h"
#include "tools/text_file.h"

namespace cv::tools {
namespace {

class StateFileTest : public testing::Test {
 protected:
  StateFile open(uint64_t first_version = 1000) {
    auto state = StateFile::open(m_path, first_version, m_error);
    EXPECT_TRUE(state) << m_error;
    return std::move(*state);
  }
  std::string content() { return read_file(m_path, m_error).value_or(m_error); }

  test::TemporaryFolder m_folder;
  std::string m_path = m_folder / "state";
  std::string m_error;
};

TEST_F(StateFileTest, VersionsRiseWithContentOnlyEachForItselfAndOverRestarts) {
  StateFile state = open();
  EXPECT_TRUE(state.update_samples(""));
  EXPECT_TRUE(state.update_dead_air("x"));
  EXPECT_FALSE(state.update_samples(""));
  EXPECT_TRUE(state.update_samples("b"));
  EXPECT_TRUE(state.save(m_error)) << m_error;

  // The clock of a later start does not matter, even when it goes back.
  StateFile later = open(5);
  EXPECT_FALSE(later.update_samples("b"));
  EXPECT_EQ(later.sample_version(), 1001u);
  EXPECT_TRUE(later.update_samples("")) << "an old content is a new version all the same";
  EXPECT_EQ(later.sample_version(), 1002u);
  EXPECT_FALSE(later.update_dead_air("x"));
  EXPECT_EQ(later.dead_air_version(), 1000u);
}

TEST_F(StateFileTest, AnIdFollowsTheContentAndSurvivesRestartsAndTheLossOfTheFile) {
  StateFile state = open();
  const uint32_t first = state.sample_id("a.wav", "content one");
  EXPECT_EQ(state.sample_id("copy.wav", "content one"), first) << "one content, one id";
  const uint32_t changed = state.sample_id("a.wav", "content two");
  EXPECT_NE(changed, first);
  EXPECT_TRUE(state.save(m_error)) << m_error;
  EXPECT_EQ(open().sample_id("a.wav", "content two"), changed);
  std::filesystem::remove(m_path);
  EXPECT_EQ(open().sample_id("a.wav", "content two"), changed);
}

TEST_F(StateFileTest, RefusesWhatIsNoStateInsteadOfStartingAfresh) {
  const std::string table[] = {
      "", R"({"format": 2})",
      R"({"format": 1, "samples": {}, "sample_configuration": {"version": 4, "content": "0"},)"
      R"( "deadair_configuration": {"version": 4, "content": "0"}, "dropped_hashes": [2, 1]})",
      R"({"format": 1, "samples": {}, "sample_configuration": {"version": -1, "content": "0"},)"
      R"( "deadair_configuration": {"version": 4, "content": "0"}})"};
  for (const std::string& text : table) {
    m_folder.write("state", text);
    EXPECT_FALSE(StateFile::open(m_path, 1, m_error)) << text;
    EXPECT_EQ(m_error.find(m_path), 0u) << m_error;
    EXPECT_EQ(content(), text) << "and leaves it to the operator";
  }
}

TEST_F(StateFileTest, AFailedSaveLeavesTheOldFileAndIsTriedAgain) {
  StateFile state = open();
  state.update_samples("a");
  EXPECT_TRUE(state.save(m_error)) << m_error;
  const std::string before = content();
  // A folder in the place of the temporary file: whoever runs this, it cannot be written.
  std::filesystem::create_directory(m_path + ".tmp");
  state.update_samples("b");
  EXPECT_FALSE(state.save(m_error));
  EXPECT_NE(m_error.find(m_path), std::string::npos) << m_error;
  EXPECT_EQ(content(), before);

  std::filesystem::remove(m_path + ".tmp");
  EXPECT_TRUE(state.save(m_error)) << m_error;
  EXPECT_EQ(open().sample_version(), 1001u);
  EXPECT_FALSE(std::filesystem::exists(m_path + ".tmp"));

  // What is there stays what it is: a link, with its target's permissions.
  std::filesystem::rename(m_path, m_folder / "target");
  std::filesystem::create_symlink(m_folder / "target", m_path);
  std::filesystem::permissions(m_path, std::filesystem::perms::owner_all);
  EXPECT_TRUE(replace_file(m_path, "new", m_error)) << m_error;
  EXPECT_TRUE(std::filesystem::is_symlink(m_path));
  EXPECT_EQ(content(), "new");
  EXPECT_EQ(std::filesystem::status(m_path).permissions(), std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace cv::tools
