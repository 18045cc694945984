#include "tools/text_file.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace cv::tools {

namespace {

constexpr std::size_t max_file_bytes = 64u << 20;

class Descriptor {
 public:
  explicit Descriptor(int fd) : m_fd(fd) {}
  ~Descriptor() {
    if (m_fd >= 0) ::close(m_fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return m_fd; }
  bool valid() const { return m_fd >= 0; }

 private:
  int m_fd;
};

std::string failure(const std::string& path, const char* what) {
  return path + ": " + what + ": " + std::strerror(errno);
}

bool write_all(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// The rename is durable only once the directory is.
bool sync_directory_of(const std::string& path) {
  const auto parent = std::filesystem::path(path).parent_path();
  const Descriptor directory(
      ::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory.valid() && ::fsync(directory.get()) == 0;
}

constexpr int for_writing = O_WRONLY | O_CLOEXEC;
constexpr int made_anew = for_writing | O_CREAT | O_TRUNC;

/// Where a file is written that is to stand at `path`.
struct Place {
  struct stat old = {};
  bool exists = false;
  std::string target;
  std::string temporary;

  explicit Place(const std::string& path) : target(path) {
    exists = ::stat(path.c_str(), &old) == 0;
    std::error_code gone;
    if (exists) target = std::filesystem::canonical(path, gone).string();
    temporary = target + ".tmp";
  }
  /// A device or a pipe: nothing that could be replaced.
  bool is_device() const { return exists && !S_ISREG(old.st_mode); }
};

/// Owner and group, as far as this user may give a file away, then permissions: a change of the owner
/// takes some of them away.
bool take_over(int fd, const struct stat& old) {
  constexpr auto as_it_is = static_cast<uid_t>(-1);
  if (::fchown(fd, old.st_uid, old.st_gid) != 0 && ::fchown(fd, as_it_is, old.st_gid) != 0) {
    // This user's own from now on, as with any editor.
  }
  return ::fchmod(fd, old.st_mode & 07777) == 0;
}

bool write_through(const std::string& path, std::string_view content, std::string& error) {
  const Descriptor file(::open(path.c_str(), for_writing));
  if (file.valid() && write_all(file.get(), content)) return true;
  error = failure(path, "cannot be written");
  return false;
}

}  // namespace

std::optional<std::string> read_file(const std::string& path, std::string& error) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid()) {
    error = failure(path, "cannot be opened");
    return std::nullopt;
  }
  std::string content;
  std::array<char, 65536> block;
  for (;;) {
    const ssize_t count = ::read(file.get(), block.data(), block.size());
    if (count == 0) return content;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      error = failure(path, "cannot be read");
      return std::nullopt;
    }
    content.append(block.data(), static_cast<std::size_t>(count));
    if (content.size() > max_file_bytes) {
      error = path + ": larger than 64 MiB";
      return std::nullopt;
    }
  }
}

bool can_replace_file(const std::string& path, std::string& error) {
  const Place place(path);
  // Opening a pipe would wait for its reader.
  if (place.is_device()) {
    if (!S_ISDIR(place.old.st_mode) && ::access(path.c_str(), W_OK) == 0) return true;
    error = path + ": cannot be written";
    return false;
  }
  const Descriptor file(::open(place.temporary.c_str(), made_anew, 0644));
  if (!file.valid()) {
    error = failure(place.temporary, "cannot be created");
    return false;
  }
  ::unlink(place.temporary.c_str());
  return true;
}

bool replace_file(const std::string& path, std::string_view content, std::string& error) {
  const Place place(path);
  if (place.is_device()) return write_through(path, content, error);
  {
    const Descriptor file(::open(place.temporary.c_str(), made_anew, 0644));
    if (!file.valid()) {
      error = failure(place.temporary, "cannot be created");
      return false;
    }
    if ((place.exists && !take_over(file.get(), place.old)) || !write_all(file.get(), content) ||
        ::fsync(file.get()) != 0) {
      error = failure(place.temporary, "cannot be written");
      ::unlink(place.temporary.c_str());
      return false;
    }
  }
  if (::rename(place.temporary.c_str(), place.target.c_str()) != 0) {
    error = failure(path, "cannot be replaced");
    ::unlink(place.temporary.c_str());
    return false;
  }
  if (!sync_directory_of(place.target)) {
    error = failure(path, "its directory cannot be synced");
    return false;
  }
  return true;
}

}  // namespace cv::tools
