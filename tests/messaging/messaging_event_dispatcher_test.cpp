#include "messaging/messaging_event_dispatcher.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "support/log_capture.h"

namespace {

using cv::messaging::EventDispatcher;
using cv::messaging::MessageBrokerSettings;
using cv::test::LogCapture;

MessageBrokerSettings send_only() {
  MessageBrokerSettings settings;
  settings.brokers = "127.0.0.1:1";
  return settings;
}

std::string event(const std::string& json) { return std::string(1, '\0') + json; }

std::string nested(size_t depth, const std::string& open = "[", const std::string& close = "]") {
  std::string text;
  for (size_t i = 0; i < depth; ++i) text += open;
  text += "1";
  for (size_t i = 0; i < depth; ++i) text += close;
  return text;
}

struct Case {
  std::string body;
  std::string calls;               // what the handler of "a" was called with
  std::vector<std::string> lines;  // besides the line that shows what was received
};

TEST(EventDispatcher, RoutesEventsAndReportsTheRest) {
  const std::string error = "ERROR messaging_event_dispatcher EVENT_DISPATCHER: ";
  const std::string too_deep = error + "JSON is nested deeper than (64), ignoring";
  const Case cases[] = {
      {"", "", {}},
      {event(R"({"type":"a","value":7})"), "a:7 ", {}},
      {event("\xef\xbb\xbf{\"type\":\"a\",\"value\":8} \n"), "a:8 ", {}},
      {event(R"({"value":1,"type":"a","type":"b"})"), "a:1 ", {}},
      {event(R"({"type":"x"})"), "", {error + "unknown JSON event [x]"}},
      {event(R"({"kind":1})"), "", {error + "JSON element \"type\" is not found"}},
      {event(R"({"type":5})"), "", {error + "JSON element \"type\" is not a string"}},
      {event(R"({"type":["a"]})"), "", {error + "JSON element \"type\" is not a string"}},
      {event(R"(["type","a"])"), "", {error + "JSON root is not an object"}},
      {event(R"("a")"), "", {error + "JSON root is not an object"}},
      {event(""), "", {error + "JSON parse error at [0]: \"The document is empty.\""}},
      {event(R"({"type":"a"} {})"),
       "",
       {error + "JSON parse error at [13]: \"The document root must not be followed by other "
                "values.\""}},
      {event(R"({"type":"a" 1})"),
       "",
       {error + "JSON parse error at [12]: \"Missing a comma or '}' after an object member.\""}},
      {event(R"({"type":"a","value":1e999})"),
       "",
       {error + "JSON parse error at [20]: \"Number too big to be stored in double.\""}},
      // The root is the first level.
      {event(R"({"type":"a","deep":)" + nested(63) + "}"), "a: ", {}},
      {event(R"({"type":"a","deep":)" + nested(64) + "}"), "", {too_deep}},
      {event(R"({"type":"a","deep":)" + nested(64, "{\"n\":", "}") + "}"), "", {too_deep}},
      {event(nested(200000)), "", {too_deep}},
      {event(R"({"type":"a","text":"\")" + nested(100) + "\"}"), "a: ", {}},
      {std::string("\x01") + "0123456789",
       "",
       {"WARNING messaging_event_dispatcher EVENT_DISPATCHER: binary event is not supported, "
        "ignoring; size (10) bytes"}},
      {"\xff..", "", {error + "unknown event (255), ignoring; size (2) bytes"}},
  };

  std::string calls;
  EventDispatcher dispatcher(send_only(), {{"a", [&](const std::string& name, void* document) {
                                              const auto& json =
                                                  *static_cast<rapidjson::Document*>(document);
                                              const auto value = json.FindMember("value");
                                              calls += name + ":";
                                              if (value != json.MemberEnd())
                                                calls += std::to_string(value->value.GetInt());
                                              calls += " ";
                                            }}});
  for (const Case& c : cases) {
    LogCapture log;
    calls.clear();
    dispatcher.on_message(reinterpret_cast<const unsigned char*>(c.body.data()), c.body.size());
    EXPECT_EQ(calls, c.calls) << c.body.substr(0, 100);
    std::vector<std::string> lines = log.texts();
    if (!c.body.empty() && c.body[0] == '\0') {
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines.front(),
                "INFO messaging_event_dispatcher EVENT_DISPATCHER: JSON event received: " +
                    c.body.substr(1));
      lines.erase(lines.begin());
    }
    EXPECT_EQ(lines, c.lines) << c.body.substr(0, 100);
  }
}

TEST(EventDispatcher, TakesOverTheMessageCallback) {
  LogCapture log;
  MessageBrokerSettings settings = send_only();
  settings.on_message = [](const unsigned char*, size_t) {};
  const EventDispatcher dispatcher(std::move(settings), {});
  EXPECT_TRUE(
      log.has(cv::log::Level::WARNING, "EVENT_DISPATCHER: Resetting message received event"));
}

}  // namespace
