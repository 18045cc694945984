#include "utils/utils_path.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "utils/utils_str.h"

namespace cv::utils::path {

std::string get_current_directory() {
  const std::unique_ptr<char, decltype(&free)> name(get_current_dir_name(), &free);
  if (name == nullptr) {
    throw std::system_error(errno, std::generic_category(), "the current directory is unknown");
  }
  std::string directory = name.get();
  if (directory.ends_with(LINUX_PATH_SEPARATOR::CHAR)) directory.pop_back();
  return directory;
}

void normalize_path_separator(std::string& path) {
  std::replace(path.begin(), path.end(), WINDOWS_PATH_SEPARATOR::CHAR, LINUX_PATH_SEPARATOR::CHAR);
}

std::string normalize_path_separator(const std::string& path) {
  std::string copy = path;
  normalize_path_separator(copy);
  return copy;
}

std::string get_file_name(const std::string& path) {
  const std::string normalized = normalize_path_separator(path);
  // npos + 1 is 0: without a separator it is the whole text.
  return normalized.substr(normalized.rfind(LINUX_PATH_SEPARATOR::CHAR) + 1);
}

std::string get_absolute_path(const std::string& path) {
  std::string text = normalize_path_separator(str::trim(path));
  if (!text.empty() && text.front() != LINUX_PATH_SEPARATOR::CHAR) {
    text = get_current_directory() + LINUX_PATH_SEPARATOR::STR + text;
  } else if (text.empty()) {
    text = get_current_directory();
  }
  std::vector<std::string> pieces;
  str::split(text, LINUX_PATH_SEPARATOR::CHAR, pieces, false);
  std::vector<std::string> names;
  for (std::string& piece : pieces) {
    if (piece == CURRENT_DIR::C_STR) continue;
    if (piece != PARENT_DIR::C_STR) {
      names.push_back(std::move(piece));
    } else if (names.empty()) {
      return {};
    } else {
      names.pop_back();
    }
  }
  if (names.empty()) return LINUX_PATH_SEPARATOR::STR;
  std::string result;
  for (const std::string& name : names) result += LINUX_PATH_SEPARATOR::STR + name;
  return result;
}

/// How much of the absolute `path` exists, as a length: up to a separator, or all of it. The root
/// always does.
static std::size_t existing_length(const std::string& path, struct stat& info) {
  std::size_t length = path.size();
  while (length > 0 && stat(path.substr(0, length).c_str(), &info) != 0) {
    length = path.rfind(LINUX_PATH_SEPARATOR::CHAR, length - 1);
  }
  if (length == 0) info.st_mode = S_IFDIR;
  return length;
}

static bool create_downwards(const std::string& path, std::size_t existing, unsigned int mode) {
  std::size_t length = existing;
  while (length < path.size()) {
    length = std::min(path.find(LINUX_PATH_SEPARATOR::CHAR, length + 1), path.size());
    // Somebody else may create it at the same time: that is as good.
    if (mkdir(path.substr(0, length).c_str(), mode) != 0 && errno != EEXIST) return false;
  }
  return true;
}

bool check_or_create_directory(const std::string& path, bool strip_file_name, unsigned int mode,
                               create_policy policy) {
  std::string directory = get_absolute_path(path);
  if (strip_file_name) {
    directory.resize(std::min(directory.rfind(LINUX_PATH_SEPARATOR::CHAR), directory.size()));
  }
  if (directory.empty()) return false;
  if (policy == create_policy::pessimistic) {
    throw std::runtime_error("not implemented:create_directory_pessimistic");
  }
  if (policy != create_policy::optimistic) throw std::invalid_argument("policy");

  struct stat info {};
  const std::size_t existing = existing_length(directory, info);
  if (!S_ISDIR(info.st_mode)) {
    errno = ENOTDIR;
    return false;
  }
  return create_downwards(directory, existing, mode);
}

}  // namespace cv::utils::path
