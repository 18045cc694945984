#include "tools/configd/embedded_broker.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <librdkafka/rdkafka.h>
#include <librdkafka/rdkafka_mock.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace cv::tools {

namespace {

constexpr int brokers = 1;

/// The bootstrap address, or a text that begins with '!' and says why there is none.
std::string create_cluster(const std::vector<std::string>& topics) {
  std::array<char, 512> error{};
  rd_kafka_conf_t* conf = rd_kafka_conf_new();
  // The handle only hosts the cluster: that it has no broker to connect to is no news.
  rd_kafka_conf_set_log_cb(conf, nullptr);
  rd_kafka_t* host = rd_kafka_new(RD_KAFKA_PRODUCER, conf, error.data(), error.size());
  if (host == nullptr) return std::string("!") + error.data();
  rd_kafka_mock_cluster_t* cluster = rd_kafka_mock_cluster_new(host, brokers);
  if (cluster == nullptr) return "!the cluster cannot be created";
  for (const std::string& topic : topics) {
    const auto code = rd_kafka_mock_topic_create(cluster, topic.c_str(), 1, brokers);
    if (code != RD_KAFKA_RESP_ERR_NO_ERROR) {
      return "!topic " + topic + ": " + rd_kafka_err2str(code);
    }
  }
  return rd_kafka_mock_cluster_bootstraps(cluster);
}

void write_text(int descriptor, const std::string& text) {
  // Far below what a pipe takes at once.
  if (::write(descriptor, text.data(), text.size()) < 0) ::_exit(1);
}

[[noreturn]] void run_child(pid_t parent, int lifeline, int report,
                            const std::vector<std::string>& topics) {
  ::prctl(PR_SET_NAME, "kafka-cluster");
  // Ctrl-C reaches the whole process group, and this process must outlive the clients in the other:
  // it is the lifeline that ends it. The signals are blocked already (StopSignals); the death signal
  // is for a parent that could not close the lifeline because a child of its own holds it.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  write_text(report, create_cluster(topics));
  ::close(report);
  char ignored = 0;
  while (::read(lifeline, &ignored, 1) < 0 && errno == EINTR) {
  }
  // Nothing of the cluster is worth an orderly end.
  ::_exit(0);
}

std::string read_text(int descriptor) {
  std::string text;
  std::array<char, 512> block;
  ssize_t count = 0;
  while ((count = ::read(descriptor, block.data(), block.size())) != 0) {
    if (count > 0) text.append(block.data(), static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) break;
  }
  return text;
}

}  // namespace

std::optional<EmbeddedBroker> EmbeddedBroker::start(const std::vector<std::string>& topics,
                                                    std::string& error) {
  std::array<int, 2> lifeline{};
  std::array<int, 2> report{};
  if (::pipe2(lifeline.data(), O_CLOEXEC) != 0 || ::pipe2(report.data(), O_CLOEXEC) != 0) {
    error = std::string("embedded broker: ") + std::strerror(errno);
    return std::nullopt;
  }
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(lifeline[1]);
    ::close(report[0]);
    run_child(parent, lifeline[0], report[1], topics);
  }
  ::close(lifeline[0]);
  ::close(report[1]);
  const std::string address = child > 0 ? read_text(report[0]) : std::string();
  ::close(report[0]);
  EmbeddedBroker broker(child, lifeline[1], address);
  if (!address.empty() && address.front() != '!') return broker;
  error = "embedded broker: " + (address.empty() ? "did not start" : address.substr(1));
  return std::nullopt;
}

EmbeddedBroker::EmbeddedBroker(EmbeddedBroker&& other) noexcept
    : m_child(std::exchange(other.m_child, -1)),
      m_lifeline(std::exchange(other.m_lifeline, -1)),
      m_address(std::move(other.m_address)) {}

EmbeddedBroker::~EmbeddedBroker() {
  if (m_lifeline >= 0) ::close(m_lifeline);
  if (m_child <= 0) return;
  while (::waitpid(m_child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace cv::tools
