#include "medianode/report_destinations.h"

#include <utility>

#include "log/log.h"

namespace cv::mn {

ReportDestinations::ReportDestinations(net::AddressList allowed, const IClock& clock)
    : m_allowed(std::move(allowed)), m_clock(clock) {}

ReportDestinations::~ReportDestinations() {
  if (const uint64_t count = m_refused.take_rest()) say_refused(count);
}

void ReportDestinations::on_session_created(rc_ptr<MediaSession> session) {
  net::HostAddr& address = session->m_report_address;
  if (!m_allowed.empty() && address.port != 0 &&
      !m_allowed.contains(address.addr.sin_addr.s_addr)) {
    m_last_refused = address.host;
    address.port = address.addr.sin_port = 0;
    m_refused.add(1);
  }
  say_refused_when_due();
}

void ReportDestinations::say_refused_when_due() {
  if (m_refused.unsaid() == 0) return;
  if (const auto count = m_refused.take(m_clock.now_us())) say_refused(*count);
}

void ReportDestinations::say_refused(uint64_t count) const {
  CV_LOG(WarningMessage) << "REPORT_DESTINATIONS: (" << count
                         << ") calls named a report address that is not allowed, the last ["
                         << m_last_refused << "]; (" << m_refused.total() << ") in all";
}

}  // namespace cv::mn
