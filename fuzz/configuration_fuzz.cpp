// Configuration files, argument strings and command lines. A plain reading of the same text says which
// names and values must be set, in which order, and where the reading must stop; what the node's own
// configuration then holds is in range.
//
// An input is a file. Each of its lines is also an argument string, and all of them are the words of a
// command line.
#include <cmath>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "app/app.h"
#include "conf/conf_kafka_configuration.h"
#include "fuzzing.h"
#include "medianode/configuration.h"

namespace cv::fuzz {
namespace {

using Pair = std::pair<std::string, std::string>;  // a flag has no value

/// Keeps what it is told, and refuses values that begin with '!'.
class Recorder : public conf::Configuration {
 public:
  int set_flag(const std::string& name, std::stringstream&) override {
    pairs.push_back({name, ""});
    return conf::applied;
  }
  int set_value(const std::string& name, const std::string& value, std::stringstream&) override {
    if (value[0] == '!') return conf::bad_format;
    pairs.push_back({name, value});
    return conf::applied;
  }

  std::vector<Pair> pairs;
};

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
std::string without_left(std::string text) {
  while (!text.empty() && is_space(text.front())) text.erase(text.begin());
  return text;
}
std::string without_right(std::string text) {
  while (!text.empty() && is_space(text.back())) text.pop_back();
  return text;
}

/// The plain reading: false where it stops.
class Reading {
 public:
  bool file(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
      const std::string text = without_left(without_right(line));
      if (text.empty() || text[0] == '#') continue;
      std::vector<std::string> pieces;
      std::string piece;
      for (const char c : text + '=') {
        if (c != '=') {
          piece += c;
        } else if (!piece.empty()) {
          pieces.push_back(std::exchange(piece, ""));
        }
      }
      if (!option(pieces)) return false;
    }
    return true;
  }

  bool args(const std::string& text) {
    std::vector<std::string> options(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
      // A comma that is written twice, or as "_;", is part of a value.
      if (text.compare(i, 2, ",,") == 0 || text.compare(i, 2, "_;") == 0) {
        options.back() += ',';
        ++i;
      } else if (text[i] == ',') {
        options.emplace_back();
      } else {
        options.back() += text[i];
      }
    }
    return std::all_of(options.begin(), options.end(), [&](const std::string& text_of_option) {
      return text_of_option.empty() || option(pieces_of(text_of_option));
    });
  }

  std::vector<Pair> pairs;

 private:
  /// Empty ones too, but none behind an '=' at the end.
  static std::vector<std::string> pieces_of(const std::string& text) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
      if (c == '=') {
        pieces.emplace_back();
      } else {
        pieces.back() += c;
      }
    }
    if (pieces.back().empty()) pieces.pop_back();
    return pieces;
  }

  bool option(const std::vector<std::string>& pieces) {
    if (pieces.empty() || pieces.size() > 2) return false;
    const std::string value = pieces.size() == 2 ? without_left(pieces[1]) : "";
    if (!value.empty() && value[0] == '!') return false;
    pairs.push_back({without_right(pieces[0]), value});
    return true;
  }
};

/// A file of this text that has no place in the file system.
class Text {
 public:
  explicit Text(const std::string& text) : m_descriptor(memfd_create("configuration", 0)) {
    FUZZ_CHECK(write(m_descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  }
  ~Text() { close(m_descriptor); }
  std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

 private:
  int m_descriptor;
};

void check_node(const mn::Configuration& configuration) {
  FUZZ_CHECK(configuration.audio_detection_drift <= 3);
  FUZZ_CHECK(configuration.log_level >= log::Level::SYSTEM);
  FUZZ_CHECK(configuration.log_level <= log::Level::TRACE);
  FUZZ_CHECK(configuration.media_receive_buffer_bytes <= INT32_MAX / 2);
}

void read_file(const std::string& content, const std::vector<std::string>& lines) {
  const Text text(content);
  rc_ptr<Recorder> recorder(new Recorder);
  Reading expected;
  FUZZ_CHECK(recorder->parse_file(text.path()) == expected.file(lines));
  FUZZ_CHECK(recorder->pairs == expected.pairs);
  rc_ptr<mn::Configuration> node(new mn::Configuration);
  node->parse_file(text.path());
  check_node(*node);
  rc_ptr<conf::KafkaConfiguration> kafka(new conf::KafkaConfiguration);
  kafka->parse_file(text.path());
}

void read_args(const std::string& args) {
  rc_ptr<Recorder> recorder(new Recorder);
  Reading expected;
  FUZZ_CHECK(recorder->parse_args(args) == expected.args(args));
  FUZZ_CHECK(recorder->pairs == expected.pairs);
  rc_ptr<mn::Configuration> node(new mn::Configuration);
  node->parse_args(args);
  check_node(*node);
}

struct CommandLine : app::ServiceBase {
  CommandLine() : ServiceBase("fuzz") {}
  void help() override {}
  bool do_start() override { return false; }
};

void read_words(std::vector<std::string> words) {
  words.insert(words.begin(), "/bin/node");
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  CommandLine service;
  const auto left = service.pre_parse_args(static_cast<int>(pointers.size()), pointers.data());
  FUZZ_CHECK(left.size() == words.size() - 1);
  service.parse_args(left);
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv::fuzz;
  const auto lines = lines_of(data, size);
  read_file(std::string(data, data + size), lines);
  for (const std::string& line : lines) read_args(line);
  read_words(lines);
  return 0;
}
