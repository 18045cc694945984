#include "utils/utils_path.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
namespace path = cv::utils::path;

TEST(CheckOrCreateDirectory, CreatesWhatIsMissing) {
  const cv::test::TemporaryFolder folder;
  fs::current_path(folder.path());
  folder.write("file", "");
  const struct {
    const char *text, *directory;
    bool strip_file_name;
    int error;
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
