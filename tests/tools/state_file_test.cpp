#include "tools/configd/state_file.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <optional>

#include "support/sound_folder.h"
#include "tools/text_file.h"

namespace {

using cv::tools::StateFile;

constexpr uint64_t first_version = 1700000000;

class StateFileTest : public testing::Test {
 protected:
  StateFile open(uint64_t first = first_version) {
    std::string error;
    auto state = StateFile::open(path(), first, error);
    EXPECT_TRUE(state) << error;
    return std::move(*state);
  }
  void save(StateFile& state) {
    std::string error;
    EXPECT_TRUE(state.save(error)) << error;
  }
  std::string path() const { return m_folder / "state"; }
  std::string content() const {
    std::string error;
    return cv::tools::read_file(path(), error).value_or(error);
  }

  cv::test::TemporaryFolder m_folder;
};

TEST_F(StateFileTest, VersionsRiseWithContentOnlyEachForItselfAndOverRestarts) {
  StateFile state = open();
  EXPECT_TRUE(state.update_samples("a"));
  EXPECT_TRUE(state.update_dead_air("x"));
  EXPECT_FALSE(state.update_samples("a"));
  EXPECT_TRUE(state.update_samples("b"));
  EXPECT_EQ(state.sample_version(), first_version + 1);
  EXPECT_EQ(state.dead_air_version(), first_version);
  save(state);

  // The clock of a later start does not matter, even when it goes back.
  StateFile later = open(5);
  EXPECT_FALSE(later.update_samples("b"));
  EXPECT_EQ(later.sample_version(), first_version + 1);
  EXPECT_TRUE(later.update_samples("a")) << "an old content is a new version all the same";
  EXPECT_EQ(later.sample_version(), first_version + 2);
  EXPECT_FALSE(later.update_dead_air("x"));
  EXPECT_EQ(later.dead_air_version(), first_version);
}

TEST_F(StateFileTest, AnEmptyContentIsAContent) {
  StateFile state = open();
  EXPECT_TRUE(state.update_samples(""));
  EXPECT_EQ(state.sample_version(), first_version);
  EXPECT_FALSE(state.update_samples(""));
}

TEST_F(StateFileTest, AnIdFollowsTheContentAndSurvivesRestartsAndTheLossOfTheFile) {
  StateFile state = open();
  const uint32_t first = state.sample_id("a.wav", "content one");
  EXPECT_EQ(state.sample_id("a.wav", "content one"), first);
  EXPECT_EQ(state.sample_id("copy.wav", "content one"), first) << "one content, one id";
  const uint32_t changed = state.sample_id("a.wav", "content two");
  EXPECT_NE(changed, first);
  save(state);
  StateFile later = open();
  EXPECT_EQ(later.sample_id("a.wav", "content two"), changed);
  EXPECT_EQ(later.sample_id("copy.wav", "content one"), first);

  std::filesystem::remove(path());
  StateFile fresh = open();
  EXPECT_EQ(fresh.sample_id("a.wav", "content two"), changed);
}

TEST_F(StateFileTest, ATakenIdIsPassedOver) {
  StateFile state = open();
  const uint32_t id = state.sample_id("a.wav", "content");
  // The same id recorded for another content, as a collision would leave it.
  m_folder.write("state", R"({"format": 1,
    "sample_configuration": {"version": 3, "content": "0"},
    "deadair_configuration": {"version": 4, "content": "0"},
    "samples": {"other.wav": {"id": )" +
                              std::to_string(id) + R"(, "content": "0000000000000001"}}})");
  StateFile collided = open();
  EXPECT_EQ(collided.sample_version(), 3u);
  EXPECT_EQ(collided.sample_id("a.wav", "content"), id + 1);
}

TEST_F(StateFileTest, RefusesWhatIsNoStateInsteadOfStartingAfresh) {
  const char* table[] = {
      "",
      "{",
      "[]",
      "{}",
      R"({"format": 2})",
      R"({"format": 1, "samples": {}})",
      R"({"format": 1, "samples": {}, "sample_configuration": {"version": -1, "content": "0"},
          "deadair_configuration": {"version": 1, "content": "0"}})",
      R"({"format": 1, "samples": {}, "sample_configuration": {"version": 1, "content": "0x"},
          "deadair_configuration": {"version": 1, "content": "0"}})",
      R"({"format": 1, "samples": {"a": {"id": "1", "content": "0"}},
          "sample_configuration": {"version": 1, "content": "0"},
          "deadair_configuration": {"version": 1, "content": "0"}})"};
  for (const char* text : table) {
    m_folder.write("state", text);
    std::string error;
    EXPECT_FALSE(StateFile::open(path(), 1, error)) << text;
    EXPECT_EQ(error.find(path()), 0u) << error;
    EXPECT_EQ(content(), text) << "and leaves it to the operator";
  }
}

TEST_F(StateFileTest, AFailedSaveLeavesTheOldFileAndIsTriedAgain) {
  StateFile state = open();
  state.update_samples("a");
  save(state);
  const std::string before = content();
  // A folder in the place of the temporary file: whoever runs this, it cannot be written.
  std::filesystem::create_directory(path() + ".tmp");
  state.update_samples("b");
  std::string error;
  EXPECT_FALSE(state.save(error));
  EXPECT_NE(error.find(path()), error.npos) << error;
  EXPECT_EQ(content(), before);

  std::filesystem::remove(path() + ".tmp");
  save(state);
  EXPECT_EQ(open().sample_version(), first_version + 1);
  EXPECT_FALSE(std::filesystem::exists(path() + ".tmp"));
}

}  // namespace
