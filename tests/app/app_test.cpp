#include "app/app.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <unistd.h>

#include "app/scripted_service.h"
#include "support/log_capture.h"

namespace {

using cv::test::ScriptedService;

TEST(ServiceBase, ReadsTheCommandLine) {
  const std::string file = "/etc/tarnwell/corvanth/scripted.conf";
  const struct {
    std::vector<std::string> words;
    int status;
    std::string settings;  // configuration file, pid file and arguments, a space between
  } cases[] = {
      {{"-c", "/a/../b.conf"}, 0, "/b.conf  "},
      {{"--config", "/c", "--pid-file", "/run//x.pid"}, 0, "/c /run/x.pid "},
      {{"--args", "a=1", "--args", "", "--args", "a=2"}, 0, file + "  a=2,a=1"},
      {{"-d", "--args", "--help"}, 0, file + "  --help"},
      {{"-c", "/c", "word"}, 1, "/c  "},
      {{"-c"}, 1, file + "  "},
      {{"--pid-file-default"}, 0, file + " /opt/bin/node.pid "},
  };
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    ScriptedService service;
    service.m_daemon_supported = false;
    EXPECT_EQ(service.run(c.words), c.status) << testing::PrintToString(c.words);
    EXPECT_EQ(service.m_config_file + " " + service.m_pid_file + " " + service.m_args, c.settings);
    EXPECT_FALSE(service.m_daemon);
    EXPECT_EQ(log.has_containing("daemon mode is not supported, ignoring option [-d]"),
              c.words[0] == "-d");
  }
}

TEST(ServiceBase, SaysFirstWhatItWasStartedWith) {
  cv::test::LogCapture log;
  ScriptedService().run({"--pid-file", "/x//y", "-c", "/c"});
  const std::vector<std::string> lines = log.tagged("SERVICE: ");
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], "SYSTEM  pid file: /x/y");
  EXPECT_EQ(lines[1], "SYSTEM exec path: /opt/bin/node");
  EXPECT_EQ(lines[2], "SYSTEM exec args: [--pid-file] [/x//y] [-c] [/c]");
  EXPECT_TRUE(lines[3].starts_with("SYSTEM [corvanthscripted] main thread ["));
}

TEST(ServiceBase, CallsItsHooksInOrderAndEndsWellWhateverOneDoes) {
  ScriptedService* running = nullptr;
  const struct {
    std::string hook;
    std::function<bool()> doing;
    int status;
    std::string error;
  } cases[] = {
      {"work", [&] { return running->run({}) == 10; }, 0, ""},
      {"work", [] { return false; }, 1, ""},
      {"start", []() -> bool { throw std::runtime_error("bad luck"); }, 1, "bad luck"},
      {"work", []() -> bool { throw "a text"; }, 1, "a text"},
      {"work", []() -> bool { throw 5; }, 1, "unknown exception"},
  };
  const std::string order = "open prepare start work ";
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    ScriptedService service;
    running = &service;
    service.script[c.hook] = c.doing;
    EXPECT_EQ(service.run({}), c.status);
    EXPECT_EQ(service.calls, order.substr(0, order.find(c.hook) + c.hook.size()) + " close ");
    EXPECT_TRUE(c.error.empty() || log.has(cv::log::Level::ERROR, "SERVICE: " + c.error));
    EXPECT_TRUE(log.has_containing("] stopped"));
  }
}

// As a shell starts it with "2>&-".
TEST(ServiceBaseDeathTest, FillsTheStandardDescriptorsThatCameClosed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto start = [](int closed) {
    ScriptedService service;
    service.script["work"] = [closed] {
      return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(closed)) ==
             "/dev/null";
    };
    close(closed);
    _exit(service.run({}) == 0 ? 33 : 34);
  };
  EXPECT_EXIT(start(STDIN_FILENO), testing::ExitedWithCode(33), "");
  EXPECT_EXIT(start(STDERR_FILENO), testing::ExitedWithCode(33), "");
}

}  // namespace
