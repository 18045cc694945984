// Splits a call's audio into streams, one a side.
//
// A side's stream is made by its first DATA packet in sequence; that packet and every later one are
// handed on with the stream. A stream lives as long as its session, or whoever else holds it.
// Threads: as the session manager's. Failure: counted, and the packet goes no further.
#pragma once

#include "media/media_session_manager.h"

namespace cv::media {

struct StreamManagerStatistic : SessionManagerStatistic {
  Counter streams_allocation_errors;  // a stream could not be allocated
};

class StreamManager : public SessionManager {
 public:
  /// Neither is owned; both outlive the manager.
  explicit StreamManager(StreamManagerStatistic& statistic, const IClock& clock = steady_clock());

 protected:
  /// Whoever overrides it creates a StreamSession or a class derived from it.
  Session* create_session(const StartPacket& packet, int& error) override;
  void on_session_media(rc_ptr<Session> session, DataPacket& packet) override;

  void prefetch_media(const Session& session, const DataPacket& packet, Stage stage) const override;

  /// The stream's part of prefetch_media(): asks for the stream, then for what it says is needed.
  virtual void prefetch_stream(const Stream& stream, Stage stage) const;

  /// Null with `error` 0: no memory. Null with `error` non-zero: the stream is refused. Either way
  /// the side's next DATA packet asks again.
  virtual Stream* create_stream(const DataPacket& packet, int& error);
  /// Once a stream, just before on_stream_media() for the same packet.
  virtual void on_stream_created(rc_ptr<Stream> stream, rc_ptr<Session> session,
                                 DataPacket& packet);
  virtual void on_stream_media(rc_ptr<Stream> stream, rc_ptr<Session> session, DataPacket& packet);

 private:
  StreamManagerStatistic& m_stream_statistic;
};

}  // namespace cv::media
