#include "tools/command_line.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "core/clock.h"
#include "support/sound_folder.h"
#include "tools/configd/embedded_broker.h"
#include "tools/configd/pacer.h"
#include "tools/fingerprint.h"
#include "tools/stop_signals.h"
#include "tools/text_file.h"

namespace cv::tools {
namespace {

class CommandLine : public testing::Test {
 protected:
  CommandLine() { test::write_sound(m_file, test::sine(500, 0.5, 8000, 1), 8000, 1); }

  /// The exit status.
  int run(std::vector<std::string> arguments) {
    std::vector<const char*> argv = {"corvanth"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = run_command_line(static_cast<int>(argv.size()), argv.data());
    m_out = testing::internal::GetCapturedStdout();
    m_err = testing::internal::GetCapturedStderr();
    return status;
  }

  test::TemporaryFolder m_folder;
  const std::string m_file = m_folder / "a.wav";
  std::string m_out;
  std::string m_err;
};

TEST_F(CommandLine, AFingerprintIsTheSameInEveryForm) {
  const std::string output = m_folder / "a.packet";
  const auto fingerprint = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"fingerprint", "--phases", "2", m_file});
    EXPECT_EQ(run(options), 0) << m_err;
    return m_out;
  };
  EXPECT_EQ(fingerprint({"-o", output}), "");
  std::string error;
  const std::string bytes = read_file(output, error).value_or("");
  const std::string hex = to_hex({bytes.begin(), bytes.end()});
  EXPECT_EQ(hex.substr(0, 8), "47480000");
  const std::string points = std::to_string((bytes.size() - 8) / 8);
  const std::string json =
      R"({"file":")" + m_file + R"(","seconds":1.0,"frames":61,"points":)" + points;
  EXPECT_EQ(fingerprint({"--hex"}), hex + "\n");
  EXPECT_EQ(fingerprint({"--json"}), json + "}\n");
  EXPECT_EQ(fingerprint({"--hex", "--json"}), json + R"(,"hash":")" + hex + "\"}\n");
  EXPECT_EQ(fingerprint({}), m_file + ": 1.00 s, 61 frames, " + points + " points, " +
                                 std::to_string(bytes.size()) + " bytes\n");
}

TEST_F(CommandLine, AFileThatFailsDoesNotKeepTheOthersBack) {
  EXPECT_EQ(run({"fingerprint", m_folder / "missing.wav", m_file}), 1);
  EXPECT_NE(m_err.find("missing.wav"), std::string::npos);
  EXPECT_NE(m_out.find("a.wav: "), std::string::npos);
  EXPECT_EQ(run({"fingerprint", "-o", m_folder / "no/such/folder", m_file}), 1);
}

TEST_F(CommandLine, ExitStatusesAreDoneFailedAndUsage) {
  const std::string& file = m_file;
  const std::vector<std::string> play = {"play", "--to", "127.0.0.1:9", "--rule", "1"};
  const std::vector<std::string> listen = {"listen", "--port", "0", "--timeout", "0.01"};
  const std::vector<std::string> configd = {"configd", "--samples", m_folder.path(), "--rules",
                                            file};
  const struct {
    int status;
    std::vector<std::string> command;
    std::vector<std::string> more;
  } table[] = {
      {0, {"--help"}, {}},
      {0, {"play", "--help"}, {}},
      {2, {}, {}},
      {2, {"unknown"}, {}},
      {2, {"fingerprint"}, {}},
      {2, {"fingerprint", "--phases", "129", file}, {}},
      {2, {"fingerprint", "-o", "x", file, file}, {}},
      {2, {"play", file}, {}},
      {2, {"play", "--to", "127.0.0.1:9", "--rule", "-1", file}, {}},
      {2, play, {"--uuid", "12", file}},
      {2, play, {"--features", "all", file}},
      {1, {"play", "--to", "nowhere", "--rule", "1", file}, {}},
      {1, play, {"/nonexistent.wav"}},
      {2, {"listen"}, {}},
      {2, {"listen", "--port", "65536"}, {}},
      {0, listen, {}},
      {1, listen, {"--count", "1"}},
      {2, configd, {}},
      {2, configd, {"--brokers", "b:1", "--embedded-broker"}},
      {1, configd, {"--embedded-broker"}},
  };
  for (const auto& row : table) {
    std::vector<std::string> arguments = row.command;
    arguments.insert(arguments.end(), row.more.begin(), row.more.end());
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(run(arguments), row.status) << m_err;
    if (row.status == 0) continue;
    EXPECT_FALSE(m_err.empty());
    EXPECT_EQ(m_out, "");
  }
}

TEST(StopSignals, EndAWaitAtOnceAndAreTakenHoweverOftenTheyCome) {
  EXPECT_EXIT(
      {
        StopSignals stop;
        const int64_t now_us = cv::steady_clock().now_us();
        bool right = !stop.check() && stop.sleep_until(now_us + 1000) && !stop.stopped();
        raise(SIGTERM);
        right = right && !stop.sleep_until(now_us + 3600 * int64_t{1000000}) && stop.stopped();
        raise(SIGTERM);
        raise(SIGINT);
        right = right && !stop.wait_readable_until(-1, now_us + 3600 * int64_t{1000000});
        std::_Exit(right ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(EmbeddedBroker, HasAnAddressAndIsGoneWithItsOwner) {
  std::string error;
  auto broker = EmbeddedBroker::start({"a", "b"}, error);
  ASSERT_TRUE(broker) << error;
  EXPECT_EQ(broker->address().rfind("127.0.0.1:", 0), 0u) << broker->address();
  broker.reset();
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";

  EXPECT_FALSE(EmbeddedBroker::start({"twice", "twice"}, error));
  EXPECT_NE(error.find("topic twice"), error.npos) << error;
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(Pacer, SpreadsBytesOverTimeWithoutSavingUp) {
  Pacer pacer(1000000);
  EXPECT_EQ(pacer.reserve(5000000, 500000), 5000000);
  EXPECT_EQ(pacer.reserve(5000000, 100), 5500000);
  EXPECT_EQ(pacer.reserve(9000000, 100), 9000000) << "a pause earns no burst";
  EXPECT_EQ(pacer.reserve(9000000, 100), 9000100);
}

}  // namespace
}  // namespace cv::tools
