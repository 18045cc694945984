// The node's view of a call: which rule applies, where its reports go, which analyses are wanted.
//
// Threads: as media::Session; m_features changes on the packet reader's thread, the rest never does.
#pragma once

#include <cstdint>

#include "media/media_session.h"
#include "net/net_hosts.h"

namespace cv::mn {

class MediaSession : public media::StreamSession {
 public:
  MediaSession(const media::StartPacket& packet, int64_t now_us);

  /// Takes over the feature bits of a feature update, and logs it even if they are the same ones.
  /// False for every other control packet, which changes nothing.
  bool update(const media::ControlPacket& packet);

  uint64_t m_rule;  // the sample configuration the call is matched against
  /// Where the call's reports go. Both ports are in network byte order, as START carried them;
  /// 0: the call has no report address.
  net::HostAddr m_report_address;
  uint8_t m_features;  // R R S S A A in bits 7 to 2
};

}  // namespace cv::mn
