// The single place where reports leave the node.
//
// The pipeline pushes a report and goes on at once; this thread serialises it, sends the text as one
// datagram to the call's report address and, where configured, to the service's, and logs it.
//
// Threads: push() on the pipeline's thread alone; serialising, sending and counting on the own one.
// Ownership: shares the configuration; the statistic block, if one is given, is not owned. stop()
// first sends what is queued; the destructor does not stop.
// Failure: a report that finds the queue full is dropped and counted; a failed send is logged by the
// socket and not repeated; without memory for its text a report is lost, which an ERROR line says.
#pragma once

#include <cstdint>
#include <string>

#include "core/queue_reader.h"
#include "core/reference_countable.h"
#include "medianode/configuration.h"
#include "medianode/report.h"
#include "medianode/report_statistic.h"
#include "net/net_socket.h"

namespace cv::mn {

class ReportManager : public QueueReader<rc_ptr<Report>, 10000, 1000000000> {
 public:
  /// Opens the sending socket. Null `statistic`: the manager has a block of its own.
  explicit ReportManager(rc_ptr<Configuration> configuration,
                         ReportManagerStatistic* statistic = nullptr);

  void run() override;
  void on_queue_read(rc_ptr<Report> report) override;
  /// 0, also when not running, or the error number of joining the thread.
  int stop() override;

  const ReportManagerStatistic& report_statistic() const;

 private:
  using Base = QueueReader<rc_ptr<Report>, 10000, 1000000000>;

  void deliver(const Report& report, const std::string& text);
  void send(const Report& report, const std::string& text);

  rc_ptr<Configuration> m_configuration;
  net::Socket m_socket;
};

}  // namespace cv::mn
