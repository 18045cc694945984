#include "medianode/report_manager.h"

#include <memory>
#include <new>
#include <sstream>
#include <utility>

#include "log/log.h"
#include "utils/utils_str.h"

namespace cv::mn {

namespace {

std::shared_ptr<QueueReaderStatistic> statistic_block(ReportManagerStatistic* external) {
  // The empty owner makes the pointer a plain one: the statistic service owns that block.
  if (external != nullptr) return {std::shared_ptr<void>(), external};
  return std::make_shared<ReportManagerStatistic>();
}

}  // namespace

ReportManager::ReportManager(rc_ptr<Configuration> configuration, ReportManagerStatistic* statistic)
    : Base(statistic_block(statistic)), m_configuration(std::move(configuration)) {
  // A failure is logged here and again by every send; the node's calls go on without reports.
  m_socket.open(0, 0);
}

const ReportManagerStatistic& ReportManager::report_statistic() const {
  return static_cast<const ReportManagerStatistic&>(statistic());
}

void ReportManager::run() {
  name_this_thread("reports");
  CV_LOG(SystemMessage) << "ANALYSIS_REPORT: reporting thread started with id "
                        << kernel_thread_id();
  Base::run();
}

int ReportManager::stop() {
  if (!running()) return 0;
  const int error = Base::stop();
  if (error != 0) {
    CV_LOG(WarningMessage) << "ANALYSIS_REPORT: reporting thread stopped with error (" << error
                           << ")";
  } else {
    CV_LOG(SystemMessage) << "ANALYSIS_REPORT: reporting thread stopped";
  }
  return error;
}

void ReportManager::on_queue_read(rc_ptr<Report> report) {
  if (!report) return;
  auto& counters = static_cast<ReportManagerStatistic&>(*m_statistic);
  if (!report->m_session) {
    counters.empty_report_errors.increment();
    return;
  }
  try {
    std::ostringstream stream;
    report->serialize(stream, counters);
    // Streams do not throw: a text that memory did not suffice for just ends.
    if (!stream.good()) throw std::bad_alloc();
    deliver(*report, std::move(stream).str());
  } catch (const std::bad_alloc&) {
    CV_LOG(ErrorMessage) << "REPORT_MANAGER: out of memory, a report on session "
                         << utils::str::UuidText(report->m_session->m_uuid.data()) << " is lost";
  }
}

void ReportManager::deliver(const Report& report, const std::string& text) {
  if (text.empty()) return;
  if (report.transfer_enabled(*m_configuration)) send(report, text);
  if (m_configuration->report_logging_enabled) {
    CV_LOG(SystemMessage) << "REPORT_MANAGER: sent: 0, report: " << text;
  }
}

void ReportManager::send(const Report& report, const std::string& text) {
  const auto send_to = [&](const net::HostAddr& to) {
    if (to.port != 0) m_socket.send(to.addr, text.data(), text.size());
  };
  if (m_configuration->report_to_session) send_to(report.m_destination);
  if (m_configuration->report_to_service) send_to(m_configuration->report_transfer_host);
}

}  // namespace cv::mn
