// Calls on a running node: what is found in them, how it is reported, and what is counted.

#include <cmath>

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

using NodeCalls = NodeFixture;

constexpr const char* known = "vm-mailboxfull";

/// One second of silence that is no multiple of the 128-sample hop, then the prompt.
std::vector<int16_t> after_a_second(const std::string& name) {
  std::vector<int16_t> samples(8000 + 60);
  const auto recording = prompt(name);
  samples.insert(samples.end(), recording.begin(), recording.end());
  return samples;
}

/// The number that `member` has in a report, or NaN.
double number_in(const std::string& report, const std::string& member) {
  const size_t at = report.find("\"" + member + "\": ");
  return at == report.npos ? NAN : std::stod(report.substr(at + member.size() + 4));
}

TEST_F(NodeCalls, EveryKindOfReportGoesToBothDestinations) {
  UdpReceiver service;
  start_ready_node({"privacy-prompt", known},
                   "report_on_call_termination=true,segment_detection_default_silence_hits=3,"
                   "report_transfer_host=127.0.0.1:" +
                       std::to_string(service.port()) + ",report_transfer_enabled=true");
  const CallPackets call(1);
  send_start(call);
  send_audio(call, 0, after_a_second(known));
  send_audio(call, 1, std::vector<int16_t>(16000));
  send(call.terminate());

  const auto report = [&](const std::string& type) {
    return m_reports.wait_for(
        R"({"type": ")" + type +
        R"(", "session_uuid": "00112233-4455-6677-8899-aabbccddee01", "session_timestamp": 1635500000)");
  };
  EXPECT_NE(report("corvanth_sample_match").find(R"("terminator_match": [])"), std::string::npos);
  const std::string found = report("corvanth_detection");
  EXPECT_EQ(number_in(found, "version"), 7);
  EXPECT_EQ(number_in(found, "sample_id"), 102);
  EXPECT_TRUE(found.ends_with(R"("event_object": {"prompt":[1,"vm-mailboxfull"]}})")) << found;
  EXPECT_NEAR(number_in(found, "offset"), 8060 / 8000.0, 0.05);
  EXPECT_GE(number_in(found, "score"), 4.5);
  EXPECT_LE(number_in(found, "sample_start") + number_in(found, "sample_duration"), 2.5)
      << "found within 2.5 s of the prompt's start";
  const double active_at = number_in(report("audio_activity"), "offset_ms");
  EXPECT_GE(active_at, 0.95);
  EXPECT_LE(active_at, 1.5);
  EXPECT_EQ(m_reports.texts().size(), 3u) << "the silent side reports nothing";
  EXPECT_TRUE(node_logged("REPORT_MANAGER: sent: 0, report: " + found));
  EXPECT_TRUE(node_logged("activity_hits = 5, silence_hits = 3")) << "the settings' options";
  stop_node();
  EXPECT_EQ(service.texts(), m_reports.texts());
}

TEST_F(NodeCalls, TracesAndCountersReachSyslogWhateverTheConfiguredSink) {
  start_ready_node({known});
  const CallPackets call(1), unknown(2);
  send_start(call);
  send(call.data(0, 5));
  send(call.data(0, 9));     // three lost
  send(unknown.data(1, 1));  // a zombie
  auto unmarked = call.data(0, 10);
  unmarked[0] = 0x7F;
  send(unmarked);
  send(media::Datagram());  // not counted at all
  send(media::Datagram(39));
  send(call.feature_update(0));
  send(call.terminate());

  for (const std::string counter : {"session number (zombie)....................: 1",
                                    "session lost packets number................: 3",
                                    "packet dropped  by min length..............: 1",
                                    "packet rejected by bad marker..............: 1",
                                    "packet 'data'  type number.................: 3",
                                    "packet 'ctrl'  type number.................: 1",
                                    "packet 'term'  type number.................: 1"}) {
    EXPECT_TRUE(syslog_has(counter)) << counter;
  }
  // The facilities local1 (17) and local0 (16), times 8, and the level: notice (5).
  EXPECT_TRUE(syslog_has("<141>"));
  EXPECT_TRUE(syslog_has("START | mt: 0, v: 2, f: R-, uuid: 00112233-4455-6677-8899-aabbccddee01"));
  EXPECT_TRUE(syslog_has("<133>"));
  EXPECT_TRUE(syslog_has("corvanthmedianode:" + std::to_string(media_port()) + " statistic"));
  stop_node();
}

TEST_F(NodeCalls, AStopSendsTheReportsThatAreQueued) {
  start_ready_node({known}, "report_on_call_termination=true");
  const auto audio = after_a_second(known);
  constexpr size_t calls = 20;
  for (size_t i = 0; i < calls; ++i) {
    // Every second call takes up the identifier of the one before, whose summary may be in the making.
    const CallPackets call(static_cast<uint8_t>(1 + i / 2));
    send_start(call, 0x30);
    send_audio(call, 1, audio);
    send(call.terminate());
  }
  // All ends have been handled, so all reports are queued or sent.
  ASSERT_TRUE(eventually([&] { return syslog_count("TERM  | ") == calls; }));
  stop_node();
  for (const std::string type : {"corvanth_detection", "corvanth_sample_match"}) {
    const auto& texts = m_reports.texts();
    EXPECT_EQ(std::count_if(texts.begin(), texts.end(),
                            [&](const auto& text) { return text.find(type) != text.npos; }),
              calls)
        << type;
  }
}

}  // namespace
}  // namespace cv::test
