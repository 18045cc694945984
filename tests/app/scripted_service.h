// A service whose hooks are what the test says; it logs to whatever sink is in place.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/app.h"

namespace cv::test {

struct ScriptedService : app::ServiceBase {
  ScriptedService() : ServiceBase("scripted") {}

  int run(std::vector<std::string> words) {
    words.insert(words.begin(), "/opt/bin/node");
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    return start(static_cast<int>(words.size()), pointers.data());
  }
  bool call(const std::string& hook) {
    calls += hook + " ";
    return !script[hook] || script[hook]();
  }
  void on_logger_open() override { call("open"); }
  void on_pre_start() override { call("prepare"); }
  bool do_start() override { return call("start"); }
  bool on_start() override { return call("work"); }
  void help() override { call("help"); }
  void on_logger_close() override { call("close"); }

  using ServiceBase::m_args, ServiceBase::m_config_file, ServiceBase::m_pid_file;
  using ServiceBase::m_daemon, ServiceBase::m_daemon_supported;
  std::string calls;
  std::map<std::string, std::function<bool()>> script;
};

}  // namespace cv::test
