// Paths as text against a plain walk over their names.
#include "fuzzing.h"
#include "utils/utils_path.h"

namespace cv::fuzz {
namespace {

namespace path = utils::path;

std::string with_slashes(std::string text) {
  for (char& c : text) {
    if (c == '\\') c = '/';
  }
  return text;
}

std::string absolute(std::string text, const std::string& directory) {
  const std::string blanks = " \t\n\r";
  while (!text.empty() && blanks.find(text.back()) != blanks.npos) text.pop_back();
  while (!text.empty() && blanks.find(text.front()) != blanks.npos) text.erase(text.begin());
  text = with_slashes(text);
  if (text.empty() || text[0] != '/') text = directory + '/' + text;
  // Grows and shrinks as the names are read.
  std::string result;
  std::string name;
  for (const char c : text + '/') {
    if (c != '/') {
      name += c;
      continue;
    }
    if (name == "..") {
      if (result.empty()) return "";
      result.erase(result.rfind('/'));
    } else if (!name.empty() && name != ".") {
      result += '/' + name;
    }
    name.clear();
  }
  return result.empty() ? "/" : result;
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv::fuzz;
  static const std::string directory = path::get_current_directory();
  const std::string text(data, data + size);
  FUZZ_CHECK(path::normalize_path_separator(text) == with_slashes(text));
  std::string name;
  for (const char c : with_slashes(text)) name = c == '/' ? "" : name + c;
  FUZZ_CHECK(path::get_file_name(text) == name);
  const std::string found = path::get_absolute_path(text);
  FUZZ_CHECK(found == absolute(text, directory));
  if (!found.empty()) FUZZ_CHECK(path::get_absolute_path(found) == found || found.back() <= ' ');
  return 0;
}
