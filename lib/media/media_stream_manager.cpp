#include "media/media_stream_manager.h"

#include <utility>

#include "core/prefetch.h"

namespace cv::media {

StreamManager::StreamManager(StreamManagerStatistic& statistic, const IClock& clock)
    : SessionManager(statistic, clock), m_stream_statistic(statistic) {}

Session* StreamManager::create_session(const StartPacket& packet, int& error) {
  error = 0;
  return create_or_null<StreamSession>(packet, now_us());
}

void StreamManager::on_session_media(rc_ptr<Session> session, DataPacket& packet) {
  rc_ptr<Stream>& stream = static_cast<StreamSession&>(*session).m_streams[packet.side()];
  if (!stream) {
    int error = 0;
    stream = create_stream(packet, error);
    if (!stream) {
      if (error == 0) m_stream_statistic.streams_allocation_errors.increment();
      return;
    }
    on_stream_created(stream, session, packet);
  }
  on_stream_media(stream, std::move(session), packet);
}

void StreamManager::prefetch_media(const Session& session, const DataPacket& packet,
                                   Stage stage) const {
  if (stage != Stage::stream && stage != Stage::samples) return;
  const auto& stream = static_cast<const StreamSession&>(session).m_streams[packet.side()];
  if (stream) prefetch_stream(*stream, stage);
}

void StreamManager::prefetch_stream(const Stream& stream, Stage stage) const {
  if (stage == Stage::stream) prefetch(&stream, sizeof stream);
}

Stream* StreamManager::create_stream(const DataPacket& packet, int& error) {
  error = 0;
  return create_or_null<Stream>(packet);
}

void StreamManager::on_stream_created(rc_ptr<Stream>, rc_ptr<Session>, DataPacket&) {}
void StreamManager::on_stream_media(rc_ptr<Stream>, rc_ptr<Session>, DataPacket&) {}

}  // namespace cv::media
