// What goes straight to syslog, whatever the logger's own sink: the packets that open, change and end
// calls, and those of unknown calls.

#include <array>
#include <cstdarg>
#include <cstdio>
#include <gtest/gtest.h>
#include <regex>
#include <syslog.h>

#include "media/media_session_manager.h"
#include "support/log_capture.h"
#include "support/packet_builder.h"
#include "support/stepped_reader.h"

namespace {

using namespace cv::media;
using cv::log::Level;
using cv::test::CallPackets;
using Lines = std::vector<std::string>;

Lines* g_lines = nullptr;  // while a test collects them: "priority LEVEL module text"

}  // namespace

extern "C" void syslog(int priority, const char* format, ...) {
  if (g_lines == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  char text[400] = {};
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  static const std::regex parts("(\\S+) *\\| ([^:]+):\\d+ \\| (.*)\n");
  g_lines->push_back(std::to_string(priority) + std::regex_replace(text, parts, " $1 $2 $3"));
}

namespace {

/// Of the packets of a known call and then of unknown ones.
Lines traced(Level threshold) {
  const StartFields all{.features = 0xA4,
                        .flags = 0xC1,
                        .ts = 11,
                        .sync_ts = 12,
                        .sync_mt = 13,
                        .rule = 14,
                        .call_id = std::string_view("id\0x", 4)};
  const CallPackets call(1);
  const std::array<int16_t, 2> samples{};
  Datagram terminate = call.terminate(10);
  terminate[offsetof(PacketHeader, flags)] = 0xFF;

  const cv::test::LogCapture log(threshold);
  SessionManagerStatistic sessions;
  PacketReaderStatistic packets;
  SessionManager manager(sessions);
  cv::test::SteppedReader reader(packets, manager);
  Lines lines;
  g_lines = &lines;
  for (const Datagram& datagram :
       {call.start(all, 5), CallPackets(2).start({.rule = 14}),
        call.data({.side = 1, .seq = 7, .off = 9, .s = true, .samples = samples}, 8),
        call.control(3, 6), call.feature_update(0x58, 7), terminate, CallPackets(3).data(1, 3, 4),
        CallPackets(4).control(1, 5), CallPackets(5).terminate(6)}) {
    reader.take(datagram);
  }
  g_lines = nullptr;
  return lines;
}

TEST(Trace, PacketsGoToSyslogByTheirKindAndTheThreshold) {
  const std::string reader = " media_packet_reader ", manager = " media_session_manager ";
  const std::string uuid = "uuid: 00112233-4455-6677-8899-aabbccddee0";
  const Lines all = {
      "141 SYSTEM" + reader + "START | mt: 5, v: 2, f: RN, " + uuid +
          "1, ts: 11, leg: outbound, call id: id, id: 1, sync ts: 12, sync mt: 13, ft: R-S--A, "
          "rule: 14",
      "141 SYSTEM" + reader + "START | mt: 0, v: 2, f: --, " + uuid +
          "2, ts: 0, leg: inbound, call id: , id: 2, sync ts: 0, sync mt: 0, ft: ------",
      "191 TRACE" + reader + "DATA  | mt: 8, v: 2, f: S, " + uuid +
          "1, side: 1, seq: 7, num: 2, off: 9",
      "141 SYSTEM" + reader + "CTRL  | mt: 6, v: 2, f: 0, c: 3, " + uuid + "1",
      "141 SYSTEM" + reader + "CTRL  | mt: 7, v: 2, f: 128, c: 0, " + uuid + "1, ft: -R-SA-",
      "141 SYSTEM" + reader + "TERM  | mt: 10, v: 2, f: 255, " + uuid + "1",
      "191 TRACE" + reader + "DATA  | mt: 4, v: 2, f: -, " + uuid +
          "3, side: 1, seq: 3, num: 0, off: 0",
      "140 WARNING" + manager + "DATA  | mt: 4, " + uuid + "3, side: 1, seq: 3 | unknown session",
      "141 SYSTEM" + reader + "CTRL  | mt: 5, v: 2, f: 0, c: 1, " + uuid + "4",
      "140 WARNING" + manager + "CTRL  | mt: 5, " + uuid + "4 | unknown session",
      "141 SYSTEM" + reader + "TERM  | mt: 6, v: 2, f: 0, " + uuid + "5",
      "140 WARNING" + manager + "TERM  | mt: 6, " + uuid + "5 | unknown session"};
  Lines expected = all;
  EXPECT_EQ(traced(Level::TRACE), expected);
  std::erase_if(expected, [](const std::string& line) { return line.starts_with("191"); });
  EXPECT_EQ(traced(Level::INFO), expected);
  std::erase_if(expected, [](const std::string& line) { return line.starts_with("140"); });
  EXPECT_EQ(traced(Level::ERROR), expected);
}

}  // namespace
