#include "messaging/messaging_partition_assignment.h"

#include <memory>
#include <sstream>

#include "log/log.h"
#include "messaging/messaging_attempt.h"
#include "messaging/messaging_bracketed.h"

namespace cv::messaging {

namespace {

void print_partition(std::ostream& out, const RdKafka::TopicPartition* partition) {
  out << partition->topic() << '/' << partition->partition();
}

/// Takes the partitions over or gives them back. What the library is to be told depends on the group's
/// protocol: the whole assignment by default, what changes under an operator's cooperative strategy.
void change(RdKafka::KafkaConsumer& consumer, bool assign,
            const PartitionAssignment::Partitions& partitions) {
  RdKafka::ErrorCode code = RdKafka::ERR_NO_ERROR;
  if (consumer.rebalance_protocol() == "COOPERATIVE") {
    const std::unique_ptr<RdKafka::Error> error(assign ? consumer.incremental_assign(partitions)
                                                       : consumer.incremental_unassign(partitions));
    if (error != nullptr) code = error->code();
  } else {
    code = assign ? consumer.assign(partitions) : consumer.unassign();
  }
  if (code == RdKafka::ERR_NO_ERROR) return;
  CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to " << (assign ? "assign" : "unassign")
                       << " partitions, error (" << code << "): " << RdKafka::err2str(code);
}

}  // namespace

void PartitionAssignment::on_rebalance(RdKafka::KafkaConsumer& consumer, RdKafka::ErrorCode code,
                                       Partitions& partitions) {
  attempt([&] {
    CV_LOG(SystemMessage) << "MESSAGE_BROKER: rebalance \"" << RdKafka::err2str(code) << "\": "
                          << (partitions.empty() ? "(no partitions)"
                                                 : bracketed(partitions, &print_partition));
  });
  if (code != RdKafka::ERR__ASSIGN_PARTITIONS) {
    attempt([&] { forget(partitions); });
    attempt([&] { change(consumer, false, partitions); });
    return;
  }
  const bool first = m_first_assignment.exchange(false);
  attempt([&] {
    if (first) sync_offsets(consumer, partitions, broker_query_ms);
    expect_to_hear(partitions);
    restore(partitions);
    remember(partitions);
  });
  if (first) m_consumer_ready.set_value();
  attempt([&] { change(consumer, true, partitions); });
}

// A partition assigned without an offset is read from a place that the library asks the cluster for
// afterwards, and what is published meanwhile may lie before it. Its first message or end of
// partition tells that the place is settled.
void PartitionAssignment::expect_to_hear(const Partitions& partitions) {
  for (const RdKafka::TopicPartition* partition : partitions) {
    if (partition->offset() < 0) {
      m_silent_partitions.emplace(partition->topic(), partition->partition());
    }
  }
  // At the first assignment this comes before the constructor is let go: its caller's first look
  // counts the assignment in.
  if (m_silent_partitions.empty()) m_assignments.fetch_add(1, std::memory_order_release);
}

void PartitionAssignment::forget(const Partitions& partitions) {
  for (const RdKafka::TopicPartition* partition : partitions) {
    m_silent_partitions.erase({partition->topic(), partition->partition()});
  }
}

// The group's positions alone would not do: while the brokers are away nothing is committed, and of a
// partition without a committed position the end is read, past all that came meanwhile.
void PartitionAssignment::restore(Partitions& partitions) const {
  for (RdKafka::TopicPartition* partition : partitions) {
    const auto known = m_positions.find({partition->topic(), partition->partition()});
    if (partition->offset() < 0 && known != m_positions.end()) {
      partition->set_offset(known->second);
    }
  }
}

void PartitionAssignment::remember(const Partitions& partitions) {
  for (const RdKafka::TopicPartition* partition : partitions) {
    if (partition->offset() < 0) continue;
    m_positions[{partition->topic(), partition->partition()}] = partition->offset();
  }
}

void PartitionAssignment::on_consumed(const RdKafka::Message& message) {
  const bool end = message.err() == RdKafka::ERR__PARTITION_EOF;
  if (message.err() != RdKafka::ERR_NO_ERROR && !end) return;
  const Partition partition(message.topic_name(), message.partition());
  m_positions[partition] = end ? message.offset() : message.offset() + 1;
  // Each counts, not only the last: one that is never heard must not keep the others' answers away.
  if (m_silent_partitions.erase(partition) != 0) {
    m_assignments.fetch_add(1, std::memory_order_release);
  }
}

void PartitionAssignment::sync_offsets(RdKafka::KafkaConsumer& consumer, Partitions& partitions,
                                       int timeout_ms) {
  for (RdKafka::TopicPartition* partition : partitions) {
    std::ostringstream name;
    print_partition(name, partition);
    int64_t low = 0;
    int64_t high = 0;
    const RdKafka::ErrorCode code = consumer.query_watermark_offsets(
        partition->topic(), partition->partition(), &low, &high, timeout_ms);
    if (code != RdKafka::ERR_NO_ERROR) {
      CV_LOG(ErrorMessage) << "MESSAGE_BROKER: failed to receive offset for [" << name.str()
                           << "]: error (" << code << "): \"" << RdKafka::err2str(code) << '"';
    } else if (high <= partition->offset()) {
      CV_LOG(SystemMessage) << "MESSAGE_BROKER: sync offset for [" << name.str()
                            << "] is not required; current is (" << partition->offset()
                            << "), received is (" << high << ')';
    } else {
      CV_LOG(SystemMessage) << "MESSAGE_BROKER: sync offset for [" << name.str() << "] from ("
                            << partition->offset() << ") to (" << high << ')';
      partition->set_offset(high);
    }
  }
}

}  // namespace cv::messaging
