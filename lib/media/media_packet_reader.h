// Turns datagrams into checked packets and hands them, in order of arrival, to one listener.
//
// Threads: read_from() belongs to the receiving thread and never blocks, locks or allocates from the
// heap, but for the wake-up of a sleeping reader. Everything else, the listener's operations
// included, runs on the reader's own thread, which also lends itself to the listener's housekeeping.
// Failure: a datagram that does not fit is counted and dropped; the sender is never answered. When the
// listener throws std::bad_alloc, its packet is done with, and an ERROR line at most every five seconds
// says how many were.
#pragma once

#include <cstddef>
#include <string>

#include "core/queue_reader.h"
#include "core/reference_countable.h"
#include "core/tally.h"
#include "media/media_packet.h"
#include "media/media_packet_buffer.h"

namespace cv::media {

struct PacketReaderStatistic : QueueIdleReaderStatistic {
  // Receiving thread.
  Counter min_length;         // shorter than a header
  Counter max_length;         // longer than max_packet_bytes
  Counter failed_allocation;  // the buffer pool was exhausted
  // Reader thread.
  Counter bad_marker;
  Counter bad_version;
  Counter corrupted_size;  // the size does not match the type
  Counter unknown_type;
  Counter start_packets;  // accepted, as are the next three
  Counter term_packets;
  Counter data_packets;
  Counter ctrl_packets;
};

/// Consumer of checked packets. A packet is a view that is gone when the call returns. An operation may
/// throw std::bad_alloc and leaves the listener fit for the next packet then.
class PacketReaderListener {
 public:
  virtual void on_packet(StartPacket& packet) = 0;
  virtual void on_packet(TerminatePacket& packet) = 0;
  virtual void on_packet(DataPacket& packet) = 0;
  virtual void on_packet(ControlPacket& packet) = 0;
  /// On every turn of the reader's loop.
  virtual void on_packet_try() = 0;
  /// When no packet waits. True: it did work and may have more; false: the reader may sleep.
  virtual bool on_packet_idle() = 0;

 protected:
  ~PacketReaderListener() = default;
};

/// Told of DATA packets that wait in the queue, so that what they will touch is on its way from memory
/// when their turn comes: with thousands of calls nothing of a call is left in the cache from one of its
/// packets to the next. (T. C. Mowry, M. S. Lam, A. Gupta, "Design and evaluation of a compiler algorithm
/// for prefetching", ASPLOS 1992: asking so far ahead that the answer is there in time.)
class PacketLookAhead {
 public:
  /// Each reads what the stage before has asked for. A packet passes them in this order, some packets'
  /// time between any two; it skips stages when the queue is short.
  enum class Stage : uint8_t { table, session, stream, samples };

  /// Nothing of `packet` but its length, a DATA packet's at least, has been checked. Changes nothing that
  /// can be observed.
  virtual void on_packet_ahead(const DataPacket& packet, Stage stage) = 0;

 protected:
  ~PacketLookAhead() = default;
};

class PacketReader : public QueueIdleReader<rc_ptr<PacketBuffer>, 100000, 1000000000> {
 public:
  /// None is owned; all outlive the reader. Stop a started reader before destroying it.
  PacketReader(PacketReaderStatistic& statistic, PacketReaderListener& listener,
               PacketLookAhead* look_ahead = nullptr);

  /// Receiving thread: copies one datagram into a pooled buffer and queues it.
  void read_from(const void* data, std::size_t size);

  void run() override;
  /// Packets still queued are dropped. 0, also when not running, or the error number of joining.
  int stop() override;

  void on_queue_read(rc_ptr<PacketBuffer> buffer) override;
  bool on_queue_idle() override;
  void on_queue_try() override;

 private:
  template <typename Work>
  void attempt(Work work);
  static void say_out_of_memory(uint64_t count);

  void look_ahead();
  void look_ahead(std::size_t distance, PacketLookAhead::Stage stage);
  void dispatch(PacketBuffer& buffer);
  /// Counts a packet whose size is not the expected one; true when the packet may be used.
  bool size_matches(const PacketBuffer& buffer, std::size_t expected_bytes);

  void notify(StartPacket& packet);
  void notify(TerminatePacket& packet);
  void notify(DataPacket& packet);
  void notify(ControlPacket& packet);

  PacketReaderStatistic& m_packet_statistic;
  PacketReaderListener* m_listener;
  PacketLookAhead* m_look_ahead;
  Tally m_out_of_memory;
};

/// The text of a packet's trace line.
std::string trace_text(const StartPacket& packet);
std::string trace_text(const TerminatePacket& packet);
std::string trace_text(const DataPacket& packet);
std::string trace_text(const ControlPacket& packet);

}  // namespace cv::media
