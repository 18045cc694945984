// corvanth configd: the configuration manager of a small site.
//
// Threads: the main thread owns the site, answers requests and publishes; the message broker's
// consumer thread only queues requests. So nothing of the site needs a lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/fingerprint.h"

namespace cv::tools {

struct ConfigdOptions {
  std::string sample_directory;
  std::string rules_path;
  std::string state_path;  // empty: the rules file's with ".state" appended
  SampleSettings settings{};
  std::string brokers;
  std::string properties_path;  // of the Kafka clients; empty: none
  bool embedded_broker = false;
  // Made up front: a node that subscribes to a topic before it exists may take minutes to notice it.
  std::vector<std::string> node_topics;
  std::string kafka_conf_path;  // written when not empty
  std::string request_topic = "corvanth_request";
  std::string broadcast_topic = "corvanth_broadcast";
  std::string group;  // empty: one of this process
  double look_interval_s = 1;
  double announce_interval_s = 60;  // 0: only when something changes
  uint64_t rate_bytes = 0;          // a second; 0: no limit
};

/// Runs until SIGINT or SIGTERM. An exit status.
int run_configd(ConfigdOptions options);

/// What a node needs in its Kafka settings file.
std::string kafka_conf_text(const std::string& brokers, const ConfigdOptions& options);

}  // namespace cv::tools
