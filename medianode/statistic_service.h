// Owns the counters of the packet reader, the managers and the report manager, and writes them all to
// syslog every five seconds.
//
// Threads: each counter has its one writer; the service's thread reads them without a lock, so that a
// block may mix slightly different moments. The own fields are set before start() and not after.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>

#include "core/thread.h"
#include "media/media_packet_reader.h"
#include "media/media_stream_manager.h"
#include "medianode/report_statistic.h"

namespace cv::mn {

class StatisticService : public Thread {
 public:
  /// The node's one service: made before main(), destroyed at exit.
  static StatisticService Instance;

  void run() override;
  /// Ends a wait between two blocks at once. 0, also when not running, or the error number of joining.
  int stop() override;

  /// The whole framed block, without a line feed at its end.
  void print(std::ostream& out) const;

  static void print_section_header(std::ostream& out, const std::string& title);
  static void print_section_line(std::ostream& out, const std::string& text);
  static void print_spawned_symbol(std::ostream& out, char symbol);
  void print_media_manager(std::ostream& out) const;
  void print_report_manager(std::ostream& out) const;
  void print_packet_reader(std::ostream& out) const;

  media::PacketReaderStatistic m_packet_reader;
  media::StreamManagerStatistic m_stream_manager;
  ReportManagerStatistic m_report_manager;
  uint64_t m_port = 0;
  bool m_port_known = false;
  bool m_logging_enabled = true;

 private:
  void write_block() const;
  /// Until the next block is due; false when the service is to end.
  bool wait_for_next_block();

  std::mutex m_mutex;
  std::condition_variable m_stopped;
};

}  // namespace cv::mn
