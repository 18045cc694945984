// A fresh directory that goes, with all it holds, when the object does.
#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace cv::test {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "corvanth_test_XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    m_path = std::filesystem::canonical(name);
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return m_path; }
  std::string path(const std::string& name) const { return m_path + "/" + name; }

  /// Writes a file into it; its path.
  std::string file(const std::string& name, const std::string& text) const {
    std::ofstream(path(name)) << text;
    return path(name);
  }

 private:
  std::string m_path;
};

}  // namespace cv::test
