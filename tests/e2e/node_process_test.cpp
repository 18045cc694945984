// The node as a process: exit statuses, signals, daemon mode, settings files.

#include <filesystem>
#include <fstream>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

using NodeProcess = NodeFixture;

TEST_F(NodeProcess, EndsWithAStatusAndALineWhenItCannotStart) {
  const std::string port = "port=" + std::to_string(m_media_port);
  const std::string no_kafka = "CORVANTH_KAFKA_CONF=" + m_sandbox.path() + "/none";
  const std::string bad_kafka =
      "CORVANTH_KAFKA_CONF=" + m_sandbox.write_file("kafka.conf", "kafka_broker=a=b\n");
  const std::string node = executable("corvanthmedianode");
  struct Case {
    int status;
    std::string output;
    std::vector<std::string> arguments;
  };
  const Case cases[] = {
      {0, "", {node, "-h", "--nonsense"}},
      {1, "", {node, "--verbose"}},
      {1,
       "CONFIGURATION: failed to set option [log_level] to [info]: unexpected value format",
       {node, "--args", port + ",log_level=info"}},
      {1, "CONFIGURATION: failed to open file [", {"/usr/bin/env", no_kafka, node, "--args", port}},
      {1,
       "CONFIGURATION: incorrect option format at line 0",
       {"/usr/bin/env", bad_kafka, node, "--args", port}},
      {1, "SERVICE: media node port must be specified", {node, "--args", "log_level=INFO"}},
      {1,
       "impossible to set log level stricter than 'error' level",
       {node, "--args", port + ",log_level=SYSTEM"}}};
  for (const Case& refusal : cases) {
    ChildProcess process(m_sandbox, refusal.arguments);
    EXPECT_EQ(process.wait_exit(), refusal.status) << process.output();
    EXPECT_NE(process.output().find(refusal.output), std::string::npos)
        << "expected: " << refusal.output << "\nin: " << process.output();
  }

  net::Socket occupant;
  ASSERT_TRUE(occupant.open(m_media_port, 0));
  start_node("log_level=ERROR");
  wait_for_first_requests();
  send_to_node(R"({"type":"corvanth_sample_configuration","version":1,"data":[]})");
  EXPECT_EQ(this->node().wait_exit(), 1) << "the port is in use";
  EXPECT_TRUE(node_logged("failed to bind a socket, error (98): "));
  EXPECT_FALSE(node_logged("JSON event received")) << "not at this level";
}

TEST_F(NodeProcess, ARunningNodeAnswersSignalsAndStopsInOrder) {
  start_ready_node({"vm-goodbye"});
  node().send_signal(SIGHUP);
  EXPECT_TRUE(node_logged("SERVICE: update has been requested"));
  node().send_signal(SIGUSR1);
  EXPECT_TRUE(node_logged("SERVICE: user action #1 has been requested"));
  EXPECT_TRUE(node_logged("]: system interrupted call"));
  node().send_signal(SIGUSR2);
  EXPECT_TRUE(node_logged("SERVICE: user action #2 has been requested"));
  node().send_signal(SIGQUIT);
  EXPECT_EQ(node().wait_exit(), 0);
  const std::string output = node().output();
  size_t at = 0;
  for (const char* line :
       {"SERVICE: exec path: ", "build version: \"", "SERVICE: [corvanthmedianode] main thread [",
        "CONFIGURATION: reading from args: port=", "SERVICE: kafka running version: ",
        "CONFIGURATION: option [kafka_broker] is set to [",
        "SERVICE: kafka topic is set to [corvanth_medianode_127o0o0o1_", "PACKETS_READER: thread [",
        "SERVICE: signal 3 has been received", "PACKETS_READER: thread [",
        "ANALYSIS_REPORT: reporting thread stopped", "MESSAGE_BROKER: messages listening thread [",
        "STATISTIC_SERVICE: thread [", "main thread ["}) {
    at = output.find(line, at + 1);
    EXPECT_NE(at, output.npos) << line << " is missing or out of order in " << output;
  }
}

/// What a child leaves behind becomes a child of this process, and ends with the object.
struct LeftBehind {
  LeftBehind() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
  ~LeftBehind() {
    std::ifstream children("/proc/thread-self/children");
    for (pid_t child = 0; children >> child;) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
  }
};

TEST_F(NodeProcess, DaemonModeWritesItsPidFileLogsToSyslogAndStopsOnSigterm) {
  m_sandbox.write_etc("medianode.conf",
                      "port = " + std::to_string(m_media_port) + "\nlog_level = DEBUG\n");
  const std::string pid_file = m_sandbox.write_file("node.pid", "old text");
  const LeftBehind left_behind;
  m_node = std::make_unique<ChildProcess>(
      m_sandbox,
      std::vector<std::string>{executable("corvanthmedianode"), "-d", "--pid-file", pid_file});
  EXPECT_EQ(node().wait_exit(), 0) << "the parent leaves";
  ASSERT_TRUE(syslog_has("CONFIGURATION: option [log_level] is set to [DEBUG]"));
  const pid_t daemon = std::stoi(m_sandbox.read_file("node.pid"));
  ASSERT_GT(daemon, 1);
  EXPECT_EQ(m_sandbox.read_file("node.pid"), std::to_string(daemon)) << "without a line end";
  EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/cwd"), "/tmp");

  wait_for_first_requests();
  EXPECT_TRUE(syslog_has("corvanthmedianode[" + std::to_string(daemon) + "]: SYSTEM  | "));
  kill(daemon, SIGTERM);
  EXPECT_TRUE(syslog_has("SERVICE: application stop has been requested"));
  int status = -1;
  EXPECT_TRUE(eventually([&] { return waitpid(daemon, &status, WNOHANG) == daemon; }));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(node().output(), "") << "nothing on standard error";
}

}  // namespace
}  // namespace cv::test
