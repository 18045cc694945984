#include "medianode/statistic_service.h"

#include <array>
#include <chrono>
#include <new>
#include <sstream>

#include "log/log.h"
#include "log/log_sinks.h"

namespace cv::mn {

namespace {

constexpr std::size_t frame_columns = 76;
/// What fits between the frame's "* " and " *".
constexpr std::size_t text_columns = 72;
constexpr std::chrono::seconds period{5};

struct Row {
  const char* label;
  const Counter& counter;
};

template <std::size_t N>
void print_rows(std::ostream& out, const std::array<Row, N>& rows) {
  for (const Row& row : rows) {
    StatisticService::print_section_line(out, row.label + std::to_string(row.counter.get()));
  }
}

void print_empty_line(std::ostream& out) { StatisticService::print_section_line(out, " "); }

void print_stars(std::ostream& out, std::size_t count) { out << std::string(count, '*'); }

}  // namespace

StatisticService StatisticService::Instance;

void StatisticService::run() {
  name_this_thread("statistics");
  CV_LOG(SystemMessage) << "STATISTIC_SERVICE: thread [" << kernel_thread_id() << "] started";
  if (!running()) return;
  do {
    try {
      if (m_logging_enabled) write_block();
    } catch (const std::bad_alloc&) {
      CV_LOG(ErrorMessage) << "STATISTIC_SERVICE: out of memory, a block is left out";
    }
  } while (wait_for_next_block());
}

int StatisticService::stop() {
  if (!running()) return 0;
  {
    const std::lock_guard lock(m_mutex);
    m_running.store(false, std::memory_order_release);
  }
  m_stopped.notify_all();
  const int error = Thread::stop();
  if (error == 0) {
    CV_LOG(SystemMessage) << "STATISTIC_SERVICE: thread [" << kernel_thread_id() << "] stopped";
  } else {
    CV_LOG(WarningMessage) << "STATISTIC_SERVICE: thread [" << kernel_thread_id()
                           << "] stopped with error (" << error << ")";
  }
  return error;
}

bool StatisticService::wait_for_next_block() {
  std::unique_lock lock(m_mutex);
  return !m_stopped.wait_for(lock, period, [this] { return !running(); });
}

void StatisticService::write_block() const {
  log::SystemMessage message;
  message.stream << '\n';
  print(message.stream);
  log::Syslog::write(CV_LOG_MODULE, __LINE__, log::LocalLevel::LOCAL0, message);
}

void StatisticService::print(std::ostream& out) const {
  std::string title = "corvanthmedianode";
  if (m_port_known) title.append(":").append(std::to_string(m_port));
  print_section_header(out, title.append(" statistic"));
  print_empty_line(out);
  print_media_manager(out);
  print_empty_line(out);
  print_section_header(out, "report statistic");
  print_empty_line(out);
  print_report_manager(out);
  print_empty_line(out);
  print_section_header(out, "packets statistic");
  print_empty_line(out);
  print_packet_reader(out);
  print_empty_line(out);
  print_spawned_symbol(out, '*');
}

void StatisticService::print_section_header(std::ostream& out, const std::string& title) {
  if (title.size() > text_columns) {
    out << "* " << title << '\n';
    return;
  }
  print_stars(out, (frame_columns - 2 - title.size()) / 2);
  out << ' ' << title << ' ';
  // An odd remainder goes to the right.
  print_stars(out, (frame_columns - 1 - title.size()) / 2);
  out << '\n';
}

void StatisticService::print_section_line(std::ostream& out, const std::string& text) {
  out << "* " << text;
  if (text.size() <= text_columns) out << std::string(text_columns + 1 - text.size(), ' ') << '*';
  out << '\n';
}

void StatisticService::print_spawned_symbol(std::ostream& out, char symbol) {
  out << std::string(frame_columns, symbol);
}

void StatisticService::print_media_manager(std::ostream& out) const {
  const auto& s = m_stream_manager;
  print_rows(out,
             std::to_array<Row>({
                 {"session number.............................: ", s.sessions},
                 {"session number (zombie)....................: ", s.zombies},
                 {"session audit executions number............: ", s.audit_executions},
                 {"session allocation errors number...........: ", s.allocation_errors},
                 {"session streams allocation errors number...: ", s.streams_allocation_errors},
                 {"session existing index errors number.......: ", s.existing_index_errors},
                 {"session unknown index errors number........: ", s.unknown_index_errors},
                 {"session sequence break errors number.......: ", s.sequence_break_errors},
                 {"session lost packets number................: ", s.lost_packets},
             }));
}

void StatisticService::print_report_manager(std::ostream& out) const {
  const auto& s = m_report_manager;
  print_rows(out, std::to_array<Row>({
                      {"report 'audio activity' type number........: ", s.audio_activity_reports},
                      {"report 'detection' type number.............: ", s.detection_reports},
                      {"report 'sample match' type number..........: ", s.sample_match_reports},
                      {"report queue elements number...............: ", s.elements},
                      {"report queue passed elements number........: ", s.passed},
                      {"report queue dropped elements number.......: ", s.dropped},
                      {"report queue empty report errors number....: ", s.empty_report_errors},
                  }));
}

void StatisticService::print_packet_reader(std::ostream& out) const {
  const auto& s = m_packet_reader;
  print_rows(out, std::to_array<Row>({
                      {"packet queue elements number...............: ", s.elements},
                      {"packet queue passed elements number........: ", s.passed},
                      {"packet queue dropped elements number.......: ", s.dropped},
                      {"packet queue idle hits number..............: ", s.idle_hits},
                      {"packet dropped  by min length..............: ", s.min_length},
                      {"packet dropped  by max length..............: ", s.max_length},
                      {"packet dropped  by failed allocation.......: ", s.failed_allocation},
                      {"packet rejected by bad marker..............: ", s.bad_marker},
                      {"packet rejected by version.................: ", s.bad_version},
                      {"packet rejected by corrupted size..........: ", s.corrupted_size},
                      {"packet rejected by unknown type............: ", s.unknown_type},
                      {"packet 'start' type number.................: ", s.start_packets},
                      {"packet 'term'  type number.................: ", s.term_packets},
                      {"packet 'data'  type number.................: ", s.data_packets},
                      {"packet 'ctrl'  type number.................: ", s.ctrl_packets},
                  }));
}

}  // namespace cv::mn
