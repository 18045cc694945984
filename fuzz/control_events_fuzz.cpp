// Message bodies through the event dispatcher, the node's handlers and both dispatchers. Whatever comes,
// the requests that go out and the event objects that reports will carry must be JSON, and only finite
// thresholds may reach the analysers.
//
// An input is lines. A line is a JSON event, or, by its first character:
//   !  a whole body, the kind byte included
//   ^  a number and a text: the text so many times, as one event
//   >  a number of milliseconds that pass without an event
#include <charconv>
#include <cmath>

#include "fuzzing.h"
#include "log/log.h"
#include "medianode/control_events.h"
#include "messaging/messaging_event_dispatcher.h"
#include "support/fake_clock.h"
#include "utils/utils_json.h"

namespace cv::fuzz {
namespace {

constexpr std::size_t most_bytes = 1 << 20;

bool is_json(const std::string& text) {
  return !rapidjson::Document().Parse(text.c_str(), text.size()).HasParseError();
}

/// The control side of a node, without its broker.
class Node {
 public:
  Node() {
    dead_air.on_dead_air_config(
        new mn::DeadAirConfig(0, mn::default_segment_detection(*configuration)));
  }

  void pass_time(unsigned ms) {
    clock.advance_us(int64_t{1000} * ms);
    databases.on_event_timeout();
  }

  void check() {
    for (uint64_t rule = 0; rule < 4; ++rule) {
      uint64_t version = 0;
      const auto& options = dead_air.get_options(rule, version);
      FUZZ_CHECK(std::isfinite(options.dev_threshold) && std::isfinite(options.pow_threshold));
      const auto database = databases.get_hash_database(rule, version);
      if (!database) continue;
      for (uint32_t i = 0; i < database->sample_count(); ++i) {
        const audio::SampleMetadata& sample = *database->sample_at(i).metadata;
        FUZZ_CHECK(std::isfinite(sample.threshold));
        FUZZ_CHECK(is_json(sample.event_object));
        FUZZ_CHECK(&*database->sample(sample.id).metadata == &sample);
      }
    }
  }

  rc_ptr<mn::Configuration> configuration{new mn::Configuration};
  test::FakeClock clock;
  mn::DatabaseDispatcher databases{clock};
  mn::DeadAirDispatcher dead_air;
  mn::ControlEvents events{configuration,
                           databases,
                           dead_air,
                           {"requests", "node"},
                           [](const std::string& topic, const std::string& json) {
                             FUZZ_CHECK(topic == "requests" && is_json(json));
                           }};
  messaging::EventDispatcher::Handlers handlers = events.handlers();
};

Node* receiver = nullptr;

/// One for all inputs: a broker has threads, even without topics.
messaging::EventDispatcher& dispatcher() {
  static messaging::EventDispatcher& made = [&]() -> messaging::EventDispatcher& {
    messaging::EventDispatcher::Handlers handlers;
    for (const auto& handler : Node().handlers) {
      handlers[handler.first] = [](const std::string& name, void* document) {
        receiver->handlers.at(name)(name, document);
      };
    }
    return *new messaging::EventDispatcher({}, std::move(handlers));
  }();
  return made;
}

void deliver(const std::string& body) {
  // Of its own size: reading behind it is seen.
  const Bytes bytes(body.begin(), body.end());
  dispatcher().on_message(bytes.data(), bytes.size());
}

/// "3[]" is "[][][]", as far as `room` goes.
std::string repeated(const std::string& text, std::size_t& room) {
  std::size_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  const std::string part(end, text.data() + text.size());
  std::string whole;
  for (; count > 0 && !part.empty() && whole.size() + part.size() <= room; --count) whole += part;
  room -= whole.size();
  return whole;
}

}  // namespace
}  // namespace cv::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace cv::fuzz;
  dispatcher();
  Node node;
  receiver = &node;
  std::size_t room = most_bytes;
  for (const std::string& line : lines_of(data, size)) {
    const char form = line.empty() ? '\0' : line[0];
    if (form == '!') {
      deliver(line.substr(1));
    } else if (form == '^') {
      deliver('\0' + repeated(line.substr(1), room));
    } else if (form == '>') {
      node.pass_time(static_cast<unsigned>(std::atoi(line.c_str() + 1)) % 100000);
    } else {
      deliver('\0' + line);
    }
    node.check();
  }
  return 0;
}
