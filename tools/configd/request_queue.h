// Requests from the Kafka consumer thread to the main thread, which alone knows the site.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace cv::tools {

class RequestQueue {
 public:
  /// Requests beyond this are dropped with a log line: their nodes ask again with the next
  /// announcement.
  static constexpr std::size_t capacity = 10000;

  RequestQueue();
  ~RequestQueue();
  RequestQueue(const RequestQueue&) = delete;
  RequestQueue& operator=(const RequestQueue&) = delete;

  /// A message body as the broker delivers it: the kind byte, then JSON. Consumer thread.
  void push_body(const unsigned char* data, std::size_t size);
  /// Main thread.
  std::optional<std::string> pop();
  /// Readable while a pop() may have something to give.
  int descriptor() const { return m_descriptor; }

 private:
  std::mutex m_mutex;
  std::deque<std::string> m_requests;
  int m_descriptor;
};

}  // namespace cv::tools
