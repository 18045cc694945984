// JSON events over the message broker: wraps outgoing text in its envelope, and routes incoming
// events by their "type" member to the handler registered for that name.
//
// The plain body of a message is one kind byte (0: JSON event, 1: binary event, not supported) and
// the JSON text, UTF-8, without a terminating NUL.
//
// Threads: receiving runs on the broker's consumer thread, one message at a time in consumption
// order; a handler that blocks holds up every later event. dispatch() may be called on any thread,
// also inside a handler, also while the constructor still waits for its first assignment.
// Failure: a body that is no event is dropped with a log line; an exception of a handler is not
// caught.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <unordered_map>

#include "messaging/messaging_message_broker.h"

namespace cv::messaging {

class EventDispatcher {
 public:
  /// Called with the event's name and a `rapidjson::Document*` whose root is the event object,
  /// nested at most max_nesting deep. The document lives only during the call.
  using Handler = std::function<void(const std::string& name, void* document)>;
  using Handlers = std::unordered_map<std::string, Handler>;

  struct JsonEvent {
    static constexpr const char* field_type = "type";
  };

  /// RapidJSON recurses once a level, in parsing and in writing: deeper events are refused.
  static constexpr size_t max_nesting = 64;

  /// Blocks up to 10 seconds, as the broker's constructor does. Replaces `settings.on_message`.
  EventDispatcher(MessageBrokerSettings settings, Handlers handlers);
  ~EventDispatcher() = default;
  EventDispatcher(const EventDispatcher&) = delete;
  EventDispatcher& operator=(const EventDispatcher&) = delete;

  /// Publishes one JSON event; blocks the caller while the broker sends.
  void dispatch(const std::string& topic, const std::string& json);

  /// MessageBroker::usable(), MessageBroker::assignments(). Not before the constructor has returned.
  bool usable() const { return m_broker->usable(); }
  uint64_t assignments() const { return m_broker->assignments(); }

  /// Consumer thread; public so that a body can be handed in without a broker behind it.
  void on_message(const unsigned char* data, size_t size);
  void handle_json_event(const unsigned char* data, size_t size);

 private:
  Handlers m_handlers;
  // Counted down when m_broker is set: the consumer thread runs handlers before that.
  std::latch m_constructed{1};
  // Last, so that its destructor joins the consumer thread while the handlers still exist.
  std::unique_ptr<MessageBroker> m_broker;
};

}  // namespace cv::messaging
