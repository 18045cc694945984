// A service whose hooks are what the test says; it logs to whatever sink is in place.
#pragma once

#include <functional>
#include <signal.h>
#include <string>
#include <vector>

#include "app/app.h"

namespace cv::test {

/// Words as a program gets them.
class CommandLine {
 public:
  explicit CommandLine(std::vector<std::string> words) : m_words(std::move(words)) {
    for (std::string& word : m_words) m_pointers.push_back(word.data());
    m_pointers.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(m_words.size()); }
  char** argv() { return m_pointers.data(); }

 private:
  std::vector<std::string> m_words;
  std::vector<char*> m_pointers;
};

class ScriptedService : public app::ServiceBase {
 public:
  ScriptedService() : ServiceBase("scripted") {}

  int run(std::vector<std::string> words) {
    words.insert(words.begin(), "/opt/bin/node");
    CommandLine line(std::move(words));
    return start(line.argc(), line.argv());
  }

  void on_pre_start() override {
    calls.push_back("on_pre_start");
    if (pre_start) pre_start();
  }
  bool do_start() override {
    calls.push_back("do_start");
    return !doing_start || doing_start();
  }
  bool on_start() override {
    calls.push_back("on_start");
    return !work || work();
  }
  void help() override { calls.push_back("help"); }
  void on_logger_open() override { calls.push_back("open"); }
  void on_logger_close() override { calls.push_back("close"); }

  using ServiceBase::m_args;
  using ServiceBase::m_config_file;
  using ServiceBase::m_daemon;
  using ServiceBase::m_daemon_supported;
  using ServiceBase::m_exec_path;
  using ServiceBase::m_pid_file;

  std::vector<std::string> calls;
  std::function<void()> pre_start;
  std::function<bool()> doing_start;
  std::function<bool()> work;
};

/// Puts the signals' default actions back, for the tests that follow.
class DefaultSignals {
 public:
  ~DefaultSignals() {
    for (int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2, SIGPIPE}) {
      signal(number, SIG_DFL);
    }
  }
};

}  // namespace cv::test
