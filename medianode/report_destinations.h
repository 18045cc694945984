// The addresses that a call's START may name for its reports. Who sends START packets decides where the
// node sends datagrams to: without a list, to any machine that the node reaches.
//
// A call that names another address is analysed all the same and loses the address; its reports go to
// the fixed host alone. Counted, and said in a WARNING line at most every five seconds.
// Threads: the packet reader's, but for refused().
#pragma once

#include <cstdint>
#include <string>

#include "core/clock.h"
#include "core/tally.h"
#include "medianode/media_listeners.h"
#include "net/net_address_list.h"

namespace cv::mn {

class ReportDestinations final : public MediaSessionListener {
 public:
  /// An empty list allows every address.
  ReportDestinations(net::AddressList allowed, const IClock& clock);
  ~ReportDestinations();

  /// Calls that named an address that is not allowed. Any thread.
  uint64_t refused() const { return m_refused.total(); }

  void on_session_created(rc_ptr<MediaSession> session) override;
  // Refused calls are said in their time also when none follows them: every call has an end.
  void on_session_updated(rc_ptr<MediaSession>) override { say_refused_when_due(); }
  void on_session_terminated(rc_ptr<MediaSession>) override { say_refused_when_due(); }
  void on_session_timedout(rc_ptr<MediaSession>) override { say_refused_when_due(); }

 private:
  void say_refused_when_due();
  void say_refused(uint64_t count) const;

  const net::AddressList m_allowed;
  const IClock& m_clock;
  Tally m_refused;
  std::string m_last_refused;  // dotted
};

}  // namespace cv::mn
