// Paths as text. Nothing here looks at the file system except get_current_directory and
// check_or_create_directory. Any thread, no logging.
#pragma once

#include <string>

namespace cv::utils::path {

struct CURRENT_DIR {
  static constexpr char CHAR = '.';
  static constexpr char C_STR[] = ".";
  static inline const std::string STR = C_STR;
};
struct PARENT_DIR {
  static constexpr char C_STR[] = "..";
  static inline const std::string STR = C_STR;
};
struct LINUX_PATH_SEPARATOR {
  static constexpr char CHAR = '/';
  static constexpr char C_STR[] = "/";
  static inline const std::string STR = C_STR;
};
struct WINDOWS_PATH_SEPARATOR {
  static constexpr char CHAR = '\\';
  static constexpr char C_STR[] = "\\";
  static inline const std::string STR = C_STR;
};
struct FILE_EXTENSION_SEPARATOR {
  static constexpr char CHAR = '.';
};

/// The working directory without a trailing '/' (the root is the empty string).
/// Throws std::system_error when it cannot be determined, for one because it was removed.
std::string get_current_directory();

/// Every '\' turned into '/', in place or in a copy.
void normalize_path_separator(std::string& path);
std::string normalize_path_separator(const std::string& path);

/// What stands behind the last separator, or all of it.
std::string get_file_name(const std::string& path);

/// Trimmed, separators normalised, relative to the working directory, "." and ".." resolved by text
/// alone, no trailing separator. Empty when ".." climbs above the root.
/// Throws what get_current_directory throws.
std::string get_absolute_path(const std::string& path);

enum class create_policy {
  optimistic,  // looks for the nearest existing ancestor and creates downwards from there
  pessimistic  // not implemented
};

/// True when the directory `path` exists in the end. With `strip_file_name` the last component is a
/// file's name and does not count. New directories get `mode`, less the process's umask. On failure
/// errno tells why (ENOTDIR when an ancestor is a file), and what was created stays.
/// Throws std::runtime_error for the pessimistic policy, std::invalid_argument for no policy.
bool check_or_create_directory(const std::string& path, bool strip_file_name, unsigned int mode,
                               create_policy policy);

}  // namespace cv::utils::path
