// The node's side of the control protocol: the requests it publishes, the events it follows, and
// how each event is applied to the dispatchers.
//
// A configuration that arrives is recorded with its version. When the configuration manager
// announces itself, the node asks for the versions, and for each configuration whose version is
// another than the recorded one; a sample configuration makes it ask for the samples it lacks.
// Nothing is retried on a timer: a lost request is made good by the next announcement.
//
// Threads: the requests on any thread, the handlers on the message broker's consumer thread.
// Ownership: shares the configuration, borrows the dispatchers.
// Failure: a member that is missing or of an unexpected type is an ERROR line; it costs its entry
// where it stands in one, else the whole event. Nothing else of the node changes. Without memory a
// handler throws std::bad_alloc; the event's version is not recorded then.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>

#include "core/reference_countable.h"
#include "medianode/configuration.h"
#include "medianode/database_dispatcher.h"
#include "medianode/dead_air_dispatcher.h"
#include "messaging/messaging_control_protocol.h"
#include "messaging/messaging_event_dispatcher.h"

namespace cv::mn {

/// The node's own options of segment detection.
audio::SegmentDetectionOptions default_segment_detection(const Configuration& configuration);

class ControlEvents {
 public:
  /// The configurations the node follows, in the order it asks for them.
  static constexpr std::array<const char*, 2> m_configs = {messaging::event::dead_air_configuration,
                                                           messaging::event::sample_configuration};

  /// Publishes a JSON text to a topic. Any thread.
  using Send = std::function<void(const std::string& topic, const std::string& json)>;

  struct Topics {
    std::string request;  // where requests go
    std::string node;     // where the answers are to go
  };

  ControlEvents(rc_ptr<Configuration> configuration, DatabaseDispatcher& database_dispatcher,
                DeadAirDispatcher& dead_air_dispatcher, Topics topics, Send send);

  /// Every event's name and handler; they refer to this object.
  messaging::EventDispatcher::Handlers handlers();

  void event_request_config_versions();
  void event_request_config(const std::string& name);
  /// Null or empty `ids`: all samples.
  void event_request_samples(const std::unordered_set<uint32_t>* ids);

  void event_on_config_manager_started(const std::string& name, void* document);
  void event_on_config_version(const std::string& name, void* document);
  void event_on_deadair_configuration(const std::string& name, void* document);
  void event_on_sample_configuration(const std::string& name, void* document);
  void event_on_sample_list(const std::string& name, void* document);

 private:
  /// `members`: those between the type and the topic, each with ", " behind it.
  void send_request(const std::string& type, const std::string& members);
  uint64_t recorded_version(const std::string& name);
  void record_version(const std::string& name, uint64_t version);

  rc_ptr<Configuration> m_configuration;
  DatabaseDispatcher& m_database_dispatcher;
  DeadAirDispatcher& m_dead_air_dispatcher;
  Topics m_topics;
  Send m_send;
};

}  // namespace cv::mn
