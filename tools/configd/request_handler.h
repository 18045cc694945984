// What the configuration manager answers to a node's request. No Kafka here: texts in, texts out.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tools/configd/site.h"

namespace cv::tools {

/// One event for one topic.
struct Answer {
  std::string topic;
  std::string json;
};

/// Takes an answer; false ends the answering (the manager is being stopped).
using Publish = std::function<bool(const Answer&)>;

/// Answers one request from `snapshot`: each answer goes to the request's "config_topic", sample
/// lists one event a sample. What is no request, or asks for what is not there, gets a log line and
/// no answer.
void answer_request(std::string_view json, const Snapshot& snapshot, const Publish& publish);

}  // namespace cv::tools
