#include "tools/configd/request_queue.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "log/log.h"

namespace cv::tools {

namespace {

constexpr unsigned char kind_json = 0;

}  // namespace

RequestQueue::RequestQueue() : m_descriptor(::eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)) {
  if (m_descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

RequestQueue::~RequestQueue() { ::close(m_descriptor); }

void RequestQueue::push_body(const unsigned char* data, std::size_t size) {
  if (size == 0 || data[0] != kind_json) {
    CV_LOG(ErrorMessage) << "CONFIGD: a message of " << size << " byte(s) that is no JSON event";
    return;
  }
  std::string json(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::lock_guard lock(m_mutex);
  if (m_requests.size() >= capacity) {
    CV_LOG(ErrorMessage) << "CONFIGD: more than " << capacity << " requests wait; one is dropped";
    return;
  }
  m_requests.push_back(std::move(json));
  // The descriptor counts the requests.
  ::eventfd_write(m_descriptor, 1);
}

std::optional<std::string> RequestQueue::pop() {
  const std::lock_guard lock(m_mutex);
  if (m_requests.empty()) return std::nullopt;
  eventfd_t one = 0;
  ::eventfd_read(m_descriptor, &one);
  std::string request = std::move(m_requests.front());
  m_requests.pop_front();
  return request;
}

}  // namespace cv::tools
