#include "tools/command_line.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>

#include "core/clock.h"
#include "support/sound_folder.h"
#include "tools/configd/configd_command.h"
#include "tools/configd/embedded_broker.h"
#include "tools/configd/pacer.h"
#include "tools/fingerprint_command.h"
#include "tools/progress_bar.h"
#include "tools/stop_signals.h"
#include "tools/text_file.h"

namespace {

int run(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "corvanth");
  return cv::tools::run_command_line(static_cast<int>(arguments.size()), arguments.data());
}

class Fingerprinting : public testing::Test {
 protected:
  Fingerprinting() {
    cv::test::write_sound(m_folder / "a.wav", cv::test::sine(500, 0.5, 8000, 1), 8000, 1);
  }
  int fingerprint(const cv::tools::FingerprintOptions& options) {
    m_out.str("");
    m_err.str("");
    return cv::tools::run_fingerprint(options, m_out, m_err);
  }

  cv::test::TemporaryFolder m_folder;
  std::ostringstream m_out;
  std::ostringstream m_err;
};

TEST_F(Fingerprinting, ThePacketIsTheSameInEveryForm) {
  const std::string file = m_folder / "a.wav";
  const std::string output = m_folder / "a.packet";
  EXPECT_EQ(fingerprint({.files = {file}, .phases = 2, .output = output}), 0);
  EXPECT_EQ(m_out.str(), "");
  std::string error;
  const std::string bytes = cv::tools::read_file(output, error).value_or("");
  const std::string hex = cv::tools::to_hex({bytes.begin(), bytes.end()});
  EXPECT_EQ(hex.substr(0, 8), "47480000");

  EXPECT_EQ(fingerprint({.files = {file}, .phases = 2, .hex = true}), 0);
  EXPECT_EQ(m_out.str(), hex + "\n");
  const std::string points = std::to_string((bytes.size() - 8) / 8);
  const std::string json =
      R"({"file":")" + file + R"(","seconds":1.0,"frames":61,"points":)" + points;
  EXPECT_EQ(fingerprint({.files = {file}, .phases = 2, .json = true}), 0);
  EXPECT_EQ(m_out.str(), json + "}\n");
  EXPECT_EQ(fingerprint({.files = {file}, .phases = 2, .hex = true, .json = true}), 0);
  EXPECT_EQ(m_out.str(), json + R"(,"hash":")" + hex + "\"}\n");
  EXPECT_EQ(fingerprint({.files = {file}, .phases = 2}), 0);
  EXPECT_EQ(m_out.str(), file + ": 1.00 s, 61 frames, " + points + " points, " +
                             std::to_string(bytes.size()) + " bytes\n");
}

TEST_F(Fingerprinting, AFileThatFailsDoesNotKeepTheOthersBack) {
  EXPECT_EQ(fingerprint({.files = {m_folder / "missing.wav", m_folder / "a.wav"}}), 1);
  EXPECT_NE(m_err.str().find("missing.wav"), std::string::npos);
  EXPECT_NE(m_out.str().find("a.wav: "), std::string::npos);
  EXPECT_EQ(fingerprint({.files = {m_folder / "a.wav"}, .output = m_folder / "no/such/folder"}), 1);
}

TEST_F(Fingerprinting, ExitStatusesAreDoneFailedAndUsage) {
  const std::string file = m_folder / "a.wav";
  const std::string folder = m_folder.path();
  const struct {
    int status;
    std::vector<const char*> arguments;
  } table[] = {
      {0, {"--help"}},
      {0, {"--version"}},
      {0, {"play", "--help"}},
      {0, {"fingerprint", file.c_str()}},
      {1, {"fingerprint", "/nonexistent.wav"}},
      {2, {}},
      {2, {"unknown"}},
      {2, {"fingerprint"}},
      {2, {"fingerprint", "--phases", "129", file.c_str()}},
      {2, {"fingerprint", "-o", "x", file.c_str(), file.c_str()}},
      {2, {"play", file.c_str()}},
      {2, {"play", "--to", "127.0.0.1:9", "--rule", "-1", file.c_str()}},
      {2, {"play", "--to", "127.0.0.1:9", "--rule", "1", "--uuid", "12", file.c_str()}},
      {2, {"play", "--to", "127.0.0.1:9", "--rule", "1", "--features", "all", file.c_str()}},
      {1, {"play", "--to", "nowhere", "--rule", "1", file.c_str()}},
      {1, {"play", "--to", "127.0.0.1:9", "--rule", "1", "/nonexistent.wav"}},
      {2, {"listen"}},
      {2, {"listen", "--port", "65536"}},
      {0, {"listen", "--port", "0", "--timeout", "0.01"}},
      {1, {"listen", "--port", "0", "--timeout", "0.01", "--count", "1"}},
      {2, {"configd", "--samples", folder.c_str(), "--rules", file.c_str()}},
      {2,
       {"configd", "--samples", folder.c_str(), "--rules", file.c_str(), "--brokers", "b:1",
        "--embedded-broker"}},
      {1, {"configd", "--samples", folder.c_str(), "--rules", file.c_str(), "--embedded-broker"}},
  };
  for (const auto& row : table) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = run(row.arguments);
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    std::string shown;
    for (const char* argument : row.arguments) shown += std::string(argument) + " ";
    EXPECT_EQ(status, row.status) << shown << "\n" << err;
    if (row.status == 0) continue;
    EXPECT_FALSE(err.empty()) << shown;
    EXPECT_TRUE(out.empty()) << shown << "\n" << out;
  }
}

TEST(StopSignals, EndAWaitAtOnceAndAreTakenHoweverOftenTheyCome) {
  EXPECT_EXIT(
      {
        cv::tools::StopSignals stop;
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
  auto broker = cv::tools::EmbeddedBroker::start({"a", "b"}, error);
  ASSERT_TRUE(broker) << error;
  EXPECT_EQ(broker->address().rfind("127.0.0.1:", 0), 0u) << broker->address();
  broker.reset();
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";

  EXPECT_FALSE(cv::tools::EmbeddedBroker::start({"twice", "twice"}, error));
  EXPECT_NE(error.find("topic twice"), error.npos) << error;
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(KafkaConf, NamesBrokerAndTopics) {
  cv::tools::ConfigdOptions options;
  options.request_topic = "ask";
  EXPECT_EQ(cv::tools::kafka_conf_text("127.0.0.1:9092", options),
            "kafka_broker = 127.0.0.1:9092\nkafka_topic_request = ask\n"
            "kafka_topic_broadcast = corvanth_broadcast\n");
}

TEST(Pacer, SpreadsBytesOverTimeWithoutSavingUp) {
  cv::tools::Pacer pacer(1000000);
  EXPECT_EQ(pacer.reserve(5000000, 500000), 5000000);
  EXPECT_EQ(pacer.reserve(5000000, 100), 5500000);
  EXPECT_EQ(pacer.reserve(5000000, 100), 5500100);
  EXPECT_EQ(pacer.reserve(9000000, 100), 9000000) << "a pause earns no burst";
  EXPECT_EQ(pacer.reserve(9000000, 100), 9000100);
  cv::tools::Pacer unlimited(0);
  EXPECT_EQ(unlimited.reserve(7, 1000000000), 7);
  EXPECT_EQ(unlimited.reserve(7, 1000000000), 7);
}

TEST(ProgressBar, FillsFromEmptyToFull) {
  EXPECT_EQ(cv::tools::progress_text("x", 0, 4), "x [>" + std::string(39, ' ') + "] 0/4");
  EXPECT_EQ(cv::tools::progress_text("x", 2, 4),
            "x [" + std::string(20, '=') + ">" + std::string(19, ' ') + "] 2/4");
  EXPECT_EQ(cv::tools::progress_text("x", 4, 4), "x [" + std::string(40, '=') + "] 4/4");
  EXPECT_EQ(cv::tools::progress_text("x", 0, 0), "x [" + std::string(40, '=') + "] 0/0");
}

}  // namespace
