#include "medianode/media_session.h"

#include <arpa/inet.h>

#include "log/log.h"

namespace cv::mn {

namespace {

net::HostAddr report_address(const media::StartPacket& packet) {
  net::HostAddr address;
  address.addr.sin_family = AF_INET;
  address.addr.sin_addr.s_addr = packet.report_addr;
  address.addr.sin_port = packet.report_port;
  char dotted[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address.addr.sin_addr, dotted, sizeof dotted);
  address.host = dotted;
  address.port = packet.report_port;
  return address;
}

}  // namespace

MediaSession::MediaSession(const media::StartPacket& packet, int64_t now_us)
    : StreamSession(packet, now_us),
      m_rule(packet.rule),
      m_report_address(report_address(packet)),
      m_features(packet.features()) {}

bool MediaSession::update(const media::ControlPacket& packet) {
  if (!packet.is_feature_update()) return false;
  const uint8_t old = m_features;
  m_features = packet.features();
  // Under the manager's module, where its other decisions about a call are logged.
  log::Entry<log::SystemMessage>("media_manager", __LINE__).stream()
      << "MEDIA_SESSION: feature update: old = " << media::feature_letters(old)
      << ", new = " << media::feature_letters(m_features);
  return true;
}

}  // namespace cv::mn
