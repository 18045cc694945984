#include "app/app.h"

#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "app/app_service.h"
#include "app/scripted_service.h"
#include "conf/conf_extensions.h"
#include "core/thread.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"

namespace {

using cv::test::LogCapture;
using cv::test::ScriptedService;
using Texts = std::vector<std::string>;

class ServiceTest : public testing::Test {
 protected:
  cv::test::DefaultSignals m_signals_put_back;
  LogCapture m_log;
};

TEST_F(ServiceTest, ReadsTheCommandLine) {
  const std::string default_config = "/etc/tarnwell/corvanth/scripted.conf";
  const struct {
    Texts words;
    int status;
    std::string config_file, pid_file, args;
  } cases[] = {
      {{}, 0, default_config, "", ""},
      {{"-c", "/a/../b.conf"}, 0, "/b.conf", "", ""},
      {{"--config", "/c", "--pid-file", "/run//x.pid"}, 0, "/c", "/run/x.pid", ""},
      {{"--pid-file-default"}, 0, default_config, "/opt/bin/node.pid", ""},
      {{"--args", "a=1", "--args", "a=2"}, 0, default_config, "", "a=2,a=1"},
      {{"--args", ""}, 0, default_config, "", ""},
      {{"--args", "--help"}, 0, default_config, "", "--help"},
      {{"--verbose"}, 1, default_config, "", ""},
      {{"--config=/c"}, 1, default_config, "", ""},
      {{"-c", "/c", "word"}, 1, "/c", "", ""},
  };
  for (const auto& c : cases) {
    ScriptedService service;
    EXPECT_EQ(service.run(c.words), c.status) << testing::PrintToString(c.words);
    EXPECT_EQ(service.m_config_file, c.config_file);
    EXPECT_EQ(service.m_pid_file, c.pid_file);
    EXPECT_EQ(service.m_args, c.args);
    EXPECT_EQ(service.m_exec_path, "/opt/bin/node");
  }
}

TEST_F(ServiceTest, EndsEarlyOnHelpAndOnBadArgumentsAndSaysWhyOnlyWhereItShould) {
  const struct {
    Texts words;
    int status;
    Texts calls, log;
  } cases[] = {
      {{"--help", "--nonsense"}, 0, {"open", "help", "close"}, {}},
      {{"-h"}, 0, {"open", "help", "close"}, {}},
      {{"--verbose"}, 1, {"open", "close"}, {}},
      {{"--config"},
       1,
       {"open", "close"},
       {"ERROR app SERVICE: value if not specified for option [--config]"}},
      {{"--args"},
       1,
       {"open", "close"},
       {"ERROR app SERVICE: value if not specified for option [--args]"}},
  };
  for (const auto& c : cases) {
    m_log.clear();
    ScriptedService service;
    EXPECT_EQ(service.run(c.words), c.status);
    EXPECT_EQ(service.calls, c.calls);
    EXPECT_EQ(m_log.texts(), c.log);
  }
}

TEST_F(ServiceTest, CallsTheHooksInOrderBetweenItsMilestones) {
  ScriptedService service;
  EXPECT_EQ(service.run({"--pid-file", "/x.pid", "--args", "a=1"}), 0);
  EXPECT_EQ(service.calls, (Texts{"open", "on_pre_start", "do_start", "on_start", "close"}));
  const std::string thread = "SYSTEM app SERVICE: [corvanthscripted] main thread [" +
                             std::to_string(cv::kernel_thread_id()) + "] ";
  EXPECT_EQ(m_log.texts(),
            (Texts{"SYSTEM app SERVICE:  pid file: /x.pid",
                   "SYSTEM app SERVICE: exec path: /opt/bin/node",
                   "SYSTEM app SERVICE: exec args: [--pid-file] [/x.pid] [--args] [a=1]",
                   thread + "started", thread + "stopped"}));
  m_log.clear();
  EXPECT_EQ(service.run({}), 0) << "a service that ended may start again";
  EXPECT_FALSE(m_log.has_containing("exec args"));
}

TEST_F(ServiceTest, RefusedAndThrownStartsEndInOrder) {
  const struct {
    std::function<bool()> doing_start, work;
    const char* error;  // the thrown text, or null
    bool works;
  } cases[] = {
      {[] { return false; }, nullptr, nullptr, false},
      {nullptr, [] { return false; }, nullptr, true},
      {[]() -> bool { throw std::runtime_error("bad luck"); }, nullptr, "bad luck", false},
      {nullptr, []() -> bool { throw "a text"; }, "a text", true},
      {nullptr, []() -> bool { throw std::string("a string"); }, "a string", true},
      {nullptr, []() -> bool { throw 5; }, "unknown exception", true},
  };
  for (const auto& c : cases) {
    m_log.clear();
    ScriptedService service;
    service.doing_start = c.doing_start;
    service.work = c.work;
    EXPECT_EQ(service.run({}), 1);
    EXPECT_EQ(service.calls.back(), "close");
    EXPECT_EQ(service.calls[service.calls.size() - 2], c.works ? "on_start" : "do_start");
    EXPECT_TRUE(m_log.lines().back().text.ends_with("] stopped"));
    if (c.error != nullptr) {
      EXPECT_TRUE(m_log.has(cv::log::Level::ERROR, std::string("SERVICE: ") + c.error));
    } else {
      EXPECT_FALSE(m_log.has_containing("exception"));
    }
  }
}

TEST_F(ServiceTest, AThrowBeforeTheRunEndsItWithoutMilestones) {
  ScriptedService service;
  service.pre_start = [] { throw std::runtime_error("early"); };
  EXPECT_EQ(service.run({}), 1);
  EXPECT_EQ(service.calls, (Texts{"open", "on_pre_start", "close"}));
  EXPECT_TRUE(m_log.has(cv::log::Level::ERROR, "SERVICE: early"));
  EXPECT_FALSE(m_log.has_containing("main thread"));
}

TEST_F(ServiceTest, RunsOnceAtATime) {
  ScriptedService service;
  int second = 0;
  service.work = [&] {
    second = service.run({});
    return true;
  };
  EXPECT_EQ(service.run({}), 0);
  EXPECT_EQ(second, 10);
  EXPECT_EQ(service.calls, (Texts{"open", "on_pre_start", "do_start", "on_start", "close"}));
}

TEST_F(ServiceTest, StaysInTheForegroundWhereDaemonModeIsNotSupported) {
  ScriptedService service;
  service.m_daemon_supported = false;
  EXPECT_EQ(service.run({"-d"}), 0);
  EXPECT_FALSE(service.m_daemon);
  EXPECT_TRUE(m_log.has(cv::log::Level::WARNING,
                        "SERVICE: daemon mode is not supported, ignoring option [-d]"));
}

/// Knows words of its own: "--raw WORD" before, "--pair A B" after the log is open.
class WordyService : public ScriptedService {
 public:
  bool pre_parse_arg(const std::string& word, int& remaining, char**& next) override {
    if (word != "--raw" || remaining == 0) return false;
    taken.push_back(*next++);
    --remaining;
    return true;
  }
  int parse_arg(WordIterator& current, WordIterator end) override {
    if (*current != "--pair") return *current == "--five" ? 5 : -1;
    for (int i = 0; i < 2 && current != end; ++i) {
      if (++current != end) taken.push_back(*current);
    }
    return 0;
  }
  Texts taken;
};

TEST_F(ServiceTest, ADerivedServiceAddsWordsOfItsOwn) {
  const struct {
    Texts words;
    int status;
    Texts taken;
    std::string args;
  } cases[] = {
      {{"--raw", "--help", "--args", "a"}, 0, {"--help"}, "a"},
      {{"--pair", "x", "--help", "--args", "a"}, 0, {"x", "--help"}, "a"},
      {{"--pair", "x"}, 0, {"x"}, ""},
      {{"--raw"}, 1, {}, ""},
      {{"--five"}, 1, {}, ""},
  };
  for (const auto& c : cases) {
    WordyService service;
    EXPECT_EQ(service.run(c.words), c.status) << testing::PrintToString(c.words);
    EXPECT_EQ(service.taken, c.taken);
    EXPECT_EQ(service.m_args, c.args);
  }
}

TEST(ServiceBase, PushesArgumentsInFrontOrBehind) {
  ScriptedService service;
  service.push_config_args("", true);
  service.push_config_args("b=1", false);
  service.push_config_args("a=1", false);
  service.push_config_args("c=1", true);
  EXPECT_EQ(service.m_args, "a=1,b=1,c=1");
}

class ConfiguredService : public cv::app::Service<cv::conf::PortExtension<cv::conf::Configuration>,
                                                  std::integral_constant<bool, false>> {
 public:
  explicit ConfiguredService(std::string config_file, std::string args = {})
      : Service("configured") {
    m_config_file = std::move(config_file);
    m_args = std::move(args);
  }
  void on_config() override { port_seen = m_config->port; }
  bool loaded() const { return static_cast<bool>(m_config); }
  int port_seen = -1;
};

TEST(Service, LoadsTheFileThenTheArgumentsOrNothing) {
  const cv::test::TemporaryDirectory directory;
  const std::string good = directory.file("good.conf", "port=5000\n");
  const std::string bad = directory.file("bad.conf", "port=x\n");
  const struct {
    std::string file, args;
    int port;  // -1: refused
  } cases[] = {
      {good, "", 5000},
      {good, "port=6000", 6000},
      {directory.path("missing.conf"), "", 0},
      {directory.path("missing.conf"), "port=6000", 6000},
      {bad, "port=6000", -1},
      {good, "port=x", -1},
  };
  for (const auto& c : cases) {
    LogCapture log;
    ConfiguredService service(c.file, c.args);
    EXPECT_EQ(service.do_start(), c.port >= 0) << c.file << c.args;
    EXPECT_EQ(service.loaded(), c.port >= 0);
    EXPECT_EQ(service.port_seen, c.port);
    EXPECT_EQ(log.has_containing("file is not specified, default values are used"),
              c.file.ends_with("missing.conf"));
  }
}

}  // namespace
