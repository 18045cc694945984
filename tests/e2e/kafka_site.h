// A site on a real Kafka broker: the broker (scripts/kafka), configd with a folder of recordings, a
// node, and calls to it. What is started ends with the object; everything is on 127.0.0.1.
#pragma once

#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "e2e/running_node.h"
#include "support/recordings.h"

namespace cv::test {

/// Runs scripts/kafka on the broker in this folder; what it printed. Throws when it fails.
std::string kafka_script(const std::string& command, const std::string& folder);

/// A broker of the test's own.
class KafkaBroker {
 public:
  /// `settings` are the broker's, KEY=VALUE.
  explicit KafkaBroker(const std::vector<std::string>& settings = {});
  ~KafkaBroker();
  KafkaBroker(const KafkaBroker&) = delete;
  KafkaBroker& operator=(const KafkaBroker&) = delete;

  /// "127.0.0.1:PORT"; the same after kill() and up().
  const std::string& address() const { return m_address; }
  /// Files that go with the broker.
  const TemporaryFolder& folder() const { return m_folder; }

  /// Starts it, or starts it again; returns when it answers.
  void up(const std::vector<std::string>& settings = {});
  void kill() { kafka_script("kill", m_folder / "broker"); }
  void pause() { kafka_script("pause", m_folder / "broker"); }
  void resume() { kafka_script("resume", m_folder / "broker"); }

 private:
  TemporaryFolder m_folder;
  std::string m_address;
};

/// configd and one node.
class KafkaSite : public RunningNode {
 public:
  /// The settings file of the node names `properties_file` when it is not empty. The topics bear the
  /// name `topics`, by default topics that do not exist yet.
  explicit KafkaSite(const std::string& broker, const std::string& properties_file = "",
                     const std::string& topics = unique_text());

  void add_recording(const Recording& recording);
  /// Returns when it answers requests.
  void start_manager(const std::vector<std::string>& options = {});

  ChildProcess& manager() { return *m_manager; }
  /// Whether the node has built a database of this many samples, none of them missing.
  bool node_is_loaded(size_t samples);
  /// Waits for that.
  bool node_loaded(size_t samples, int seconds = 90);
  /// The node has its database, and its media port is open.
  bool node_is_ready() { return node_logged("PACKETS_READER: thread ["); }

  /// Whether a finding of this recording on this call has come, or comes within 90 s.
  bool reported(const CallPackets& call, const Recording& recording);
  /// Whether a call of its own, with all of the recording, is recognised.
  bool finds(const Recording& recording, uint8_t call_number);

  const std::string& broker() const { return m_broker; }
  const std::string& topics() const { return m_topics; }
  std::string request_topic() const { return "request_" + m_topics; }

 private:
  const std::string m_broker;
  const std::string m_properties_file;
  const std::string m_topics;
  TemporaryFolder m_recordings;
  std::unique_ptr<ChildProcess> m_manager;
};

/// Prints the time since then.
void print_recovery(const char* what, std::chrono::steady_clock::time_point since);

}  // namespace cv::test
