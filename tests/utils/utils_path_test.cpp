#include "utils/utils_path.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
namespace path = cv::utils::path;

struct PathTest : testing::Test {
  PathTest() { fs::current_path(m_folder.path()); }
  const cv::test::TemporaryFolder m_folder;
};

TEST_F(PathTest, MakesPathsAbsoluteByTextAlone) {
  const std::string here = m_folder.path();
  const struct {
    const char* text;
    std::string expected, file_name;
  } cases[] = {
      {"//", "/", ""},  {"//a///b/", "/a/b", ""},           {"/a/b/../../..", "", ".."},
      {".", here, "."}, {"a/./b/../c", here + "/a/c", "c"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(path::get_absolute_path(c.text), c.expected) << c.text;
    EXPECT_EQ(path::get_file_name(c.text), c.file_name) << c.text;
  }
}

TEST_F(PathTest, CreatesWhatIsMissingOfADirectory) {
  m_folder.write("file", "");
  const struct {
    const char *text, *directory;
    bool strip_file_name;
    int error;  // -1: refused without a reason of the system's
  } cases[] = {
      {"a/b/c", "a/b/c", false, 0},
      {"d/e/log.txt", "d/e", true, 0},
      {"file", ".", false, ENOTDIR},
  };
  for (const auto& c : cases) {
    errno = -1;
    const bool done = path::check_or_create_directory(c.text, c.strip_file_name, 0750,
                                                      path::create_policy::optimistic);
    EXPECT_EQ(done ? 0 : errno, c.error) << c.text;
    EXPECT_TRUE(fs::is_directory(c.directory)) << c.text;
  }
  EXPECT_FALSE(fs::exists("d/e/log.txt"));
  EXPECT_EQ(fs::status("a/b").permissions(), fs::perms(0750));
}

}  // namespace
