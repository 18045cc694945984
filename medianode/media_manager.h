// The frame of the analysis pipeline: decides which calls are analysed, makes the node's sessions and
// streams, and passes every event on to the analysers that subscribed to it.
//
// SessionHandlers and StreamHandlers are tuples of the analysers' state types. Every live session and
// every stream of the manager carries one of each inline, in the same allocation, so that a packet
// costs no further one; an analyser reaches its own through session_state() and stream_state().
//
// Threads: subscription before the packet reader starts, everything else on the reader's thread.
// Ownership: the manager owns neither listeners nor the statistic block. At its end it releases the
// sessions it still holds without calling anyone.
#pragma once

#include <tuple>
#include <utility>
#include <vector>

#include "core/prefetch.h"
#include "log/log.h"
#include "media/media_stream_manager.h"
#include "medianode/media_listeners.h"
#include "medianode/media_session.h"
#include "utils/utils_str.h"

namespace cv::mn {

template <typename SessionHandlers, typename StreamHandlers>
class MediaManager : public media::StreamManager {
 public:
  struct SessionHolder : MediaSession {
    using MediaSession::MediaSession;
    SessionHandlers m_handlers;
  };

  struct StreamHolder : media::Stream {
    using media::Stream::Stream;
    StreamHandlers m_handlers;
  };

  using media::StreamManager::StreamManager;

  /// The analyser's state in a session or stream that this manager made.
  template <typename State>
  static State& session_state(MediaSession& session) {
    return std::get<State>(static_cast<SessionHolder&>(session).m_handlers);
  }
  template <typename State>
  static State& session_state(const rc_ptr<MediaSession>& session) {
    return session_state<State>(*session);
  }
  template <typename State>
  static State& stream_state(media::Stream& stream) {
    return std::get<State>(static_cast<StreamHolder&>(stream).m_handlers);
  }
  template <typename State>
  static State& stream_state(const rc_ptr<media::Stream>& stream) {
    return stream_state<State>(*stream);
  }

  void add_session_listener(MediaSessionListener* listener) {
    m_session_listeners.push_back(listener);
  }
  void add_stream_creation_listener(MediaStreamCreationListener* listener) {
    m_stream_creation_listeners.push_back(listener);
  }
  void add_stream_packet_listener(MediaStreamPacketListener* listener) {
    m_stream_packet_listeners.push_back(listener);
  }

 protected:
  media::Session* create_session(const media::StartPacket& packet, int& error) override {
    constexpr uint8_t analysed =
        media::features_sample_detection | media::features_activity_detection;
    if ((packet.features() & analysed) == 0) {
      CV_LOG(WarningMessage) << "MEDIA_MANAGER: " << utils::str::UuidText(packet.uuid.data())
                             << ": media analyzing is off for the session";
      error = 1;
      return nullptr;
    }
    error = 0;
    return media::create_or_null<SessionHolder>(packet, now_us());
  }

  void on_session_created(rc_ptr<media::Session> session, media::StartPacket&) override {
    for (auto* listener : m_session_listeners) listener->on_session_created(viewed(session));
  }

  void on_session_control(rc_ptr<media::Session> session, media::ControlPacket& packet) override {
    if (!static_cast<MediaSession&>(*session).update(packet)) return;
    for (auto* listener : m_session_listeners) listener->on_session_updated(viewed(session));
  }

  void on_session_terminated(rc_ptr<media::Session> session, media::TerminatePacket&) override {
    for (auto* listener : m_session_listeners) listener->on_session_terminated(viewed(session));
  }

  void on_session_timedout(rc_ptr<media::Session> session) override {
    for (auto* listener : m_session_listeners) listener->on_session_timedout(viewed(session));
  }

  void prefetch_stream(const media::Stream& stream, Stage stage) const override {
    media::StreamManager::prefetch_stream(stream, stage);
    const auto& handlers = static_cast<const StreamHolder&>(stream).m_handlers;
    std::apply([stage](const auto&... handler) { (prefetch_handler(handler, stage), ...); },
               handlers);
  }

  media::Stream* create_stream(const media::DataPacket& packet, int& error) override {
    error = 0;
    return media::create_or_null<StreamHolder>(packet);
  }

  void on_stream_created(rc_ptr<media::Stream> stream, rc_ptr<media::Session> session,
                         media::DataPacket&) override {
    for (auto* listener : m_stream_creation_listeners) {
      listener->on_stream_created(stream, viewed(session));
    }
  }

  void on_stream_media(rc_ptr<media::Stream> stream, rc_ptr<media::Session> session,
                       media::DataPacket& packet) override {
    for (auto* listener : m_stream_packet_listeners) {
      listener->on_stream_media(stream, viewed(session), packet);
    }
  }

 private:
  /// A handler begins with what it needs first; one that needs more says what, when that has come.
  template <typename Handler>
  static void prefetch_handler(const Handler& handler, Stage stage) {
    if (stage == Stage::stream) return prefetch(&handler);
    if constexpr (requires { handler.prefetch_samples(); }) handler.prefetch_samples();
  }

  static rc_ptr<MediaSession> viewed(const rc_ptr<media::Session>& session) {
    return rc_static_cast<MediaSession>(session);
  }

  std::vector<MediaSessionListener*> m_session_listeners;
  std::vector<MediaStreamCreationListener*> m_stream_creation_listeners;
  std::vector<MediaStreamPacketListener*> m_stream_packet_listeners;
};

}  // namespace cv::mn
