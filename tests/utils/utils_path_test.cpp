#include "utils/utils_path.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/temporary_directory.h"

namespace {

namespace path = cv::utils::path;
using path::create_policy;

TEST(Path, GetsTheFileNameBehindEitherSeparator) {
  const struct {
    const char *text, *expected;
  } cases[] = {{"/a/b.c", "b.c"}, {"a\\b", "b"}, {"b", "b"}, {"/a/", ""}, {"", ""}};
  for (const auto& c : cases) EXPECT_EQ(path::get_file_name(c.text), c.expected) << c.text;
}

class PathTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::current_path(m_directory.path()); }
  void TearDown() override { std::filesystem::current_path(m_previous); }

  const std::filesystem::path m_previous = std::filesystem::current_path();
  const cv::test::TemporaryDirectory m_directory;
};

TEST_F(PathTest, MakesPathsAbsoluteByTextAlone) {
  const std::string here = path::get_current_directory();
  EXPECT_EQ(here, m_directory.path());
  const struct {
    const char* text;
    std::string expected;
  } cases[] = {
      {"/", "/"},
      {"//a///b/", "/a/b"},
      {"/a/./b/../c", "/a/c"},
      {"/a/b/../../..", ""},
      {"/..", ""},
      {" /a \r\n", "/a"},
      {"\\a\\b", "/a/b"},
      {"", here},
      {" ", here},
      {".", here},
      {"a/./b/../c", here + "/a/c"},
      {"C:\\x", here + "/C:/x"},
      {"...", here + "/..."},
  };
  for (const auto& c : cases) EXPECT_EQ(path::get_absolute_path(c.text), c.expected) << c.text;
}

TEST_F(PathTest, AWorkingDirectoryThatIsGoneThrows) {
  std::filesystem::create_directory("gone");
  std::filesystem::current_path("gone");
  std::filesystem::remove(m_directory.path() + "/gone");
  EXPECT_ANY_THROW(path::get_absolute_path("a"));
  EXPECT_EQ(path::get_absolute_path("/a"), "/a");
}

TEST_F(PathTest, CreatesWhatIsMissingOfADirectory) {
  std::ofstream("file").close();
  const struct {
    const char* text;
    bool strip_file_name, expected;
    const char* created;
  } cases[] = {
      {".", false, true, "."},
      {"/", false, true, "/"},
      {"a/b/c", false, true, "a/b/c"},
      {"a/b/c", false, true, "a/b/c"},
      {"d/e/log.txt", true, true, "d/e"},
      {"/log.txt", true, false, nullptr},
      {"/..", false, false, nullptr},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(
        path::check_or_create_directory(c.text, c.strip_file_name, 0750, create_policy::optimistic),
        c.expected)
        << c.text;
    if (c.created == nullptr) continue;
    EXPECT_TRUE(std::filesystem::is_directory(c.created)) << c.text;
  }
  EXPECT_FALSE(std::filesystem::exists("d/e/log.txt"));
  struct stat info {};
  ASSERT_EQ(stat("a/b", &info), 0);
  EXPECT_EQ(info.st_mode & 0777u, 0750u);

  for (const char* below_a_file : {"file", "file/x", "file/x/y"}) {
    errno = 0;
    EXPECT_FALSE(
        path::check_or_create_directory(below_a_file, false, 0755, create_policy::optimistic));
    EXPECT_EQ(errno, ENOTDIR) << below_a_file;
  }
}

TEST_F(PathTest, RefusesOtherPoliciesByThrowing) {
  const auto message_of = [](create_policy policy) -> std::string {
    try {
      path::check_or_create_directory("a", false, 0755, policy);
    } catch (const std::exception& thrown) {
      return thrown.what();
    }
    return "nothing thrown";
  };
  EXPECT_EQ(message_of(create_policy::pessimistic), "not implemented:create_directory_pessimistic");
  EXPECT_EQ(message_of(static_cast<create_policy>(2)), "policy");
  EXPECT_FALSE(std::filesystem::exists("a"));
}

}  // namespace
