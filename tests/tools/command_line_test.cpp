#include "tools/command_line.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace cv::tools {
namespace {

class CommandLine : public testing::Test {
 protected:
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
  const std::string m_file = m_folder.write("a.wav", "no audio");
  std::string m_out;
  std::string m_err;
};

TEST_F(CommandLine, ExitStatusesAreDoneFailedAndUsage) {
  const std::vector<std::string> play = {"play", "--to", "127.0.0.1:9", "--rule", "1"};
  const std::vector<std::string> listen = {"listen", "--port", "0", "--timeout", "0.01"};
  const std::vector<std::string> configd = {"configd", "--samples", m_folder.path(), "--rules",
                                            m_file};
  const struct {
    int status;
    std::vector<std::string> command;
    std::vector<std::string> more;
  } table[] = {
      {0, {"--help"}, {}},
      {2, {}, {}},
      {2, {"fingerprint", "--phases", "129", m_file}, {}},
      {2, {"fingerprint", "-o", "x", m_file, m_file}, {}},
      {1, {"inspect", m_file}, {}},
      {2, {"lint", "--samples", m_folder.path(), "--rules", m_file, "--ignore", "nothing"}, {}},
      {1, {"lint", "--samples", m_folder.path(), "--rules", m_file}, {}},
      {2, play, {"--uuid", "12", m_file}},
      {1, play, {"/nonexistent.wav"}},
      {2, {"listen", "--port", "65536"}, {}},
      {0, listen, {}},
      {1, listen, {"--count", "1"}},
      {2, configd, {"--brokers", "b:1", "--embedded-broker"}},
      {1, configd, {"--embedded-broker"}},
      {2, {"analyse", "--list"}, {}},
      {2, {"analyse", "--pcap", m_file}, {m_file}},
      {2, {"analyse", m_file}, {"--samples", m_folder.path(), "--rules", m_file}},
      {1, {"analyse", "--list", "--pcap", m_file}, {}},
      {2, {"evaluate", "--samples", m_folder.path()}, {"--thresholds", "3:8:1e300"}},
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

}  // namespace
}  // namespace cv::tools
