// A node under test as a process, the media source that sends to it, and where its reports arrive.
#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <string>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "support/child_process.h"
#include "support/media_source.h"
#include "support/sandbox.h"
#include "support/udp_receiver.h"

namespace cv::test {

/// A text that no other test run on the same broker has.
inline std::string unique_text() {
  static int count = 0;
  return std::to_string(getpid()) + "_" + std::to_string(time(nullptr)) + "_" +
         std::to_string(++count);
}

class RunningNode : public MediaSource {
 public:
  /// A stop has so long, whatever the node is doing.
  static constexpr int stop_limit_s = 15;

  /// With its media port and `settings` (more --args pairs); Kafka's are in the sandbox.
  void start_node(const std::string& settings = "") {
    std::vector<std::string> command = m_launcher;
    command.insert(command.end(), {executable("corvanthmedianode"), "--args",
                                   "port=" + std::to_string(media_port()) + "," + settings});
    m_node = std::make_unique<ChildProcess>(m_sandbox, std::move(command));
  }
  /// SIGTERM, then status 0.
  void stop_node() {
    node().send_signal(SIGTERM);
    EXPECT_EQ(node().wait_exit(stop_limit_s), 0) << node().output();
  }

  ChildProcess& node() { return *m_node; }
  bool node_logged(const std::string& text, size_t from = 0) {
    return node().wait_for_output(text, from);
  }
  std::string node_topic() const {
    return "corvanth_medianode_127o0o0o1_" + std::to_string(media_port());
  }

  void send_start(const CallPackets& call, uint8_t features = all_features) {
    MediaSource::send_start(call, m_reports.port(), features);
  }

 protected:
  Sandbox m_sandbox;
  UdpReceiver m_reports;
  /// Stands before the node's command line.
  std::vector<std::string> m_launcher;
  std::unique_ptr<ChildProcess> m_node;
};

}  // namespace cv::test
