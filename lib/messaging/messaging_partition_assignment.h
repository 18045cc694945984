// The partitions that a consumer's group gives it: from where they are read, and from when on an
// answer to a request of one's own will be heard.
//
// Invariants:
// 1. Reading begins at the end of each partition of the first assignment, whatever the group had
//    committed. Later assignments go on where the reading was, also when that could not be committed;
//    partitions that are new then, from the committed position.
// 2. A partition counts in assignments() once the place where it is read from is settled: what is
//    published from then on arrives.
// Threads: everything on the consumer thread, but for assignments() and the future, which are for any.
// Failure: an end of a partition that cannot be asked for is an ERROR line; it is then read from
// where the group's position, or its absence, says. So is an assignment that the library refuses.
#pragma once

#include <atomic>
#include <cstdint>
#include <future>
#include <librdkafka/rdkafkacpp.h>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace cv::messaging {

/// What a broker is asked while the consumer thread waits is answered in this time or has failed.
inline constexpr int broker_query_ms = 1000;

class PartitionAssignment {
 public:
  using Partitions = std::vector<RdKafka::TopicPartition*>;

  /// Ready with the first assignment. To be called once.
  std::future<void> first_assignment() { return m_consumer_ready.get_future(); }

  /// Grows with the first assignment and with each partition of a later one that is listened to. When
  /// it has grown since a request was sent, the answer may have been published before anybody listened;
  /// the answer to one sent when all partitions have counted will be heard. Any thread.
  uint64_t assignments() const { return m_assignments.load(std::memory_order_acquire); }

  /// The consumer's rebalance callback: takes the partitions over, or gives them back. May wait for
  /// the brokers, about one second a partition.
  void on_rebalance(RdKafka::KafkaConsumer& consumer, RdKafka::ErrorCode code,
                    Partitions& partitions);
  /// To be called with everything that the consumer consumes.
  void on_consumed(const RdKafka::Message& message);

 private:
  static void sync_offsets(RdKafka::KafkaConsumer& consumer, Partitions& partitions,
                           int timeout_ms);
  void expect_to_hear(const Partitions& partitions);
  void forget(const Partitions& partitions);
  void remember(const Partitions& partitions);
  void restore(Partitions& partitions) const;

  using Partition = std::pair<std::string, int32_t>;  // topic and number

  // Assigned without an offset and not heard from yet.
  std::set<Partition> m_silent_partitions;
  // The offset of the next message.
  std::map<Partition, int64_t> m_positions;
  std::promise<void> m_consumer_ready;
  std::atomic<bool> m_first_assignment{true};
  std::atomic<uint64_t> m_assignments{0};
};

}  // namespace cv::messaging
