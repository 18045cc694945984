#include "messaging/messaging_event_dispatcher.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "utils/utils_json.h"

namespace {

std::string event(const std::string& json) { return std::string(1, '\0') + json; }

std::string nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(EventDispatcher, RoutesEventsAndReportsTheRest) {
  const std::string too_deep = "ERROR JSON is nested deeper than (64), ignoring";
  std::string siblings;
  for (int i = 0; i < 1000; ++i) siblings += "{},";
  const struct {
    std::string body;
    std::string outcome;  // what the handler of "a" was called with, or what was logged
  } cases[] = {
      {event(R"({"type":"a","value":7})"), "a:7"},
      {event(R"({"value":1,"type":"a","type":"b"})"), "a:1"},
      {event(R"({"type":"x"})"), "ERROR unknown JSON event [x]"},
      {event(R"({"kind":1})"), "ERROR JSON element \"type\" is not found"},
      {event(R"({"type":["a"]})"), "ERROR JSON element \"type\" is not a string"},
      {event(R"(["type","a"])"), "ERROR JSON root is not an object"},
      {event(R"({"type":"a" 1})"),
       "ERROR JSON parse error at [12]: \"Missing a comma or '}' after an object member.\""},
      // The root is the first level.
      {event(R"({"type":"a","value":3,"deep":)" + nested(63) + "}"), "a:3"},
      {event(R"({"type":"a","deep":)" + nested(64) + "}"), too_deep},
      {event(nested(200000)), too_deep},
      {event(R"({"type":"a","value":6,"entries":[)" + siblings + "{}]}"), "a:6"},
      {event(R"({"type":"a","value":4,"text":"\")" + nested(100) + "\"}"), "a:4"},
      {"\x01 0123456789", "WARNING binary event is not supported, ignoring; size (11) bytes"},
      {"\xff..", "ERROR unknown event (255), ignoring; size (2) bytes"},
  };

  std::string outcome;
  cv::messaging::MessageBrokerSettings send_only;
  send_only.brokers = "127.0.0.1:1";
  cv::messaging::EventDispatcher dispatcher(
      send_only, {{"a", [&](const std::string& name, void* document) {
                     const auto& json = *static_cast<rapidjson::Document*>(document);
                     outcome += name + ":" + std::to_string(json["value"].GetInt());
                   }}});
  for (const auto& c : cases) {
    cv::test::LogCapture log;
    outcome.clear();
    dispatcher.on_message(reinterpret_cast<const unsigned char*>(c.body.data()), c.body.size());
    auto lines = log.tagged("EVENT_DISPATCHER: ");
    if (c.body.starts_with('\0')) {
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines.front(), "INFO JSON event received: " + c.body.substr(1));
      lines.erase(lines.begin());
    }
    for (const std::string& line : lines) outcome += line;
    EXPECT_EQ(outcome, c.outcome) << c.body.substr(0, 100);
  }
}

}  // namespace
