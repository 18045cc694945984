// What the analysers of a call implement.
//
// Listeners are subscribed before the packet reader starts, are called in the order of their
// subscription on the packet reader's thread, and outlive the manager's use of them. A call's events:
// session created; for each side stream created, then its media and the frames that completes;
// session updated at any time between; and at last exactly one of terminated and timed out, unless the
// node stops first.
#pragma once

#include "core/reference_countable.h"
#include "media/media_packet.h"
#include "media/media_session.h"
#include "medianode/media_session.h"

namespace cv::audio {
struct SpectrumFrame;
}

namespace cv::mn {

class MediaSessionListener {
 public:
  virtual void on_session_created(rc_ptr<MediaSession>) {}
  /// The session's features have been replaced, possibly by the same ones.
  virtual void on_session_updated(rc_ptr<MediaSession> session) = 0;
  virtual void on_session_terminated(rc_ptr<MediaSession>) {}
  virtual void on_session_timedout(rc_ptr<MediaSession>) {}

 protected:
  ~MediaSessionListener() = default;
};

class MediaStreamCreationListener {
 public:
  virtual void on_stream_created(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session) = 0;

 protected:
  ~MediaStreamCreationListener() = default;
};

class MediaStreamPacketListener {
 public:
  /// The packet is a view that is gone when the call returns.
  virtual void on_stream_media(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                               const media::DataPacket& packet) = 0;

 protected:
  ~MediaStreamPacketListener() = default;
};

/// Subscribed to the spectrum stage.
class SpectrumGeneratorListener {
 public:
  /// The frame is valid until the call returns.
  virtual void on_spectrum_frame(rc_ptr<media::Stream> stream, rc_ptr<MediaSession> session,
                                 const audio::SpectrumFrame& frame) = 0;

 protected:
  ~SpectrumGeneratorListener() = default;
};

}  // namespace cv::mn
