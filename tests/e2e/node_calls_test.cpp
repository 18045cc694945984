// Calls on a running node: what is found in them, how it is reported, and what is counted.

#include <cmath>
#include <regex>

#include "e2e/node_fixture.h"

namespace cv::test {
namespace {

using NodeCalls = NodeFixture;

constexpr const char* known = "vm-mailboxfull";
constexpr const char* other = "privacy-prompt";

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

size_t count_of(const std::vector<std::string>& texts, const std::string& part) {
  return static_cast<size_t>(
      std::count_if(texts.begin(), texts.end(),
                    [&](const std::string& text) { return text.find(part) != text.npos; }));
}

TEST_F(NodeCalls, EveryKindOfReportGoesToBothDestinationsInItsExactForm) {
  UdpReceiver service;
  start_ready_node({known, other},
                   "report_on_call_termination=true,report_transfer_host=127.0.0.1:" +
                       std::to_string(service.port()) + ",report_transfer_enabled=true");
  const CallPackets call(1);
  send_start(call, 1, all_features, m_reports.port());
  send_audio(call, 0, after_a_second(known));
  send_audio(call, 1, std::vector<int16_t>(16000));
  send(call.terminate());

  const std::string common =
      R"("session_uuid": "00112233-4455-6677-8899-aabbccddee01", "session_timestamp": 1635500000)";
  const std::string match =
      R"("offset": [0-9.]+, "score": [0-9.]+, "sample_id": 101, "sample_name": "vm-mailboxfull", )"
      R"("sample_start": [0-9.]+, "sample_duration": [0-9.]+)";
  const std::regex detection(R"(\{"type": "corvanth_detection", )" + common +
                             R"(, "version": 7, "call_side": "originator", )" + match +
                             R"re(, "event_object": \{"prompt":\[1,"vm-mailboxfull"\]\}\})re");
  const std::regex session(R"(\{"type": "corvanth_sample_match", )" + common +
                           R"(, "version": 7, "originator_match": \[\{)" + match +
                           R"(\}\], "terminator_match": \[\]\})");
  const std::regex activity(R"(\{"type": "audio_activity", )" + common +
                            R"(, "call_side": "originator", "offset_ms": [0-9.]+\})");
  for (UdpReceiver* receiver : {&m_reports, &service}) {
    EXPECT_TRUE(std::regex_match(receiver->wait_for("corvanth_sample_match"), session));
    EXPECT_TRUE(std::regex_match(receiver->wait_for("corvanth_detection"), detection));
    EXPECT_TRUE(std::regex_match(receiver->wait_for("audio_activity"), activity));
    EXPECT_EQ(receiver->texts().size(), 3u) << "the silent side reports nothing";
  }
  EXPECT_EQ(service.texts(), m_reports.texts());
  const std::string report = m_reports.wait_for("corvanth_detection");
  EXPECT_NEAR(number_in(report, "offset"), 8060 / 8000.0, 0.05);
  EXPECT_GE(number_in(report, "score"), 4.5);
  EXPECT_LE(number_in(report, "sample_start") + number_in(report, "sample_duration"), 2.5)
      << "found within 2.5 s of the prompt's start";
  const double active_at = number_in(m_reports.wait_for("audio_activity"), "offset_ms");
  EXPECT_GE(active_at, 0.95);
  EXPECT_LE(active_at, 1.5);
  EXPECT_TRUE(node_logged("REPORT_MANAGER: sent: 0, report: " + report));
  expect_clean_stop();
}

TEST_F(NodeCalls, ANewVersionIsForTheNextCallWhileARunningOneKeepsItsOwn) {
  start_ready_node({known});
  const CallPackets running(1), next(2);
  const auto audio = after_a_second(known);
  const std::vector<int16_t> lead(audio.begin(), audio.begin() + 8000);
  const std::vector<int16_t> rest(audio.begin() + 8000, audio.end());
  send_start(running, 1, all_features, m_reports.port());
  send_audio(running, 0, lead);
  ASSERT_TRUE(node_logged("DATABASE_DISPATCHER: database switched to (1)"));

  // The new version knows the same recording under another identifier.
  send_to_node(sample_configuration(8, {{201, known}}));
  send_to_node(sample_event(201, known));
  ASSERT_TRUE(node_logged("DATABASE_DISPATCHER: database version (8) successfully built"));
  ASSERT_TRUE(eventually([&] {
    const std::string output = node().output();
    return output.find("database container swapped", output.find("version (8) successfully")) !=
           output.npos;
  }));
  send_start(next, 1, all_features, m_reports.port());
  send_audio(next, 0, audio);
  send_audio(running, 0, rest, static_cast<uint32_t>(lead.size() / 160 + 1));

  const std::string of_next = m_reports.wait_for(R"("version": 8)");
  const std::string of_running = m_reports.wait_for(R"("version": 7)");
  EXPECT_EQ(number_in(of_next, "sample_id"), 201) << of_next;
  EXPECT_EQ(number_in(of_running, "sample_id"), 101) << of_running;
  EXPECT_NE(of_running.find("ccddee01"), of_running.npos) << of_running;
  expect_clean_stop();
}

TEST_F(NodeCalls, ControlPacketsSwitchTheAnalysesOfARunningCall) {
  start_ready_node({known});
  const CallPackets call(1);
  const auto audio = after_a_second(known);
  const auto packets = static_cast<uint32_t>((audio.size() + 159) / 160);
  send_start(call, 1, 0x08, m_reports.port());
  send_audio(call, 0, audio);
  send(call.feature_update(0x30));
  send_audio(call, 0, audio, packets + 1);
  const std::string report = m_reports.wait_for("corvanth_detection");
  EXPECT_GT(number_in(report, "offset"), static_cast<double>(audio.size()) / 8000) << report;
  send(call.feature_update(0x04));
  send_audio(call, 0, audio, 2 * packets + 1);
  EXPECT_NE(m_reports.wait_for("audio_activity"), "");
  EXPECT_EQ(count_of(m_reports.texts(), "corvanth_detection"), 1u);

  for (const char* line : {": inactive", "started (rt v: 7)", ": stopped", ": originator inactive",
                           ": originator started, options: version = 0, sig_threshold = 1, "
                           "pow_threshold = 0.75, dev_threshold = 256, activity_hits = 5, "
                           "silence_hits = 2",
                           "MEDIA_SESSION: feature update: old = ----A-, new = --SS--"}) {
    EXPECT_TRUE(node_logged(line)) << line;
  }
  expect_clean_stop();
}

TEST_F(NodeCalls, TracesAndCountersReachSyslogWhateverTheConfiguredSink) {
  start_ready_node({known});
  const CallPackets call(1), unknown(2), refused(3);
  send_start(call, 1, all_features, m_reports.port());
  send_start(call, 1, all_features, m_reports.port());  // exists already
  send(call.data(0, 5));
  send(call.data(0, 9));     // three lost
  send(call.data(0, 9));     // a repeat
  send(unknown.data(1, 1));  // a zombie
  send(unknown.data(1, 2));
  send(unknown.control(1));
  send_start(refused, 1, 0xC0, 0);   // another zombie
  send(CallPackets(4).terminate());  // unknown, no zombie
  auto bad = call.data(0, 10);
  for (size_t offset : {size_t{0}, size_t{4}, size_t{5}}) {  // marker, type, version
    auto packet = bad;
    packet[offset] = 0x7F;
    send(packet);
  }
  bad.push_back(0);
  send(bad);
  send(media::Datagram());  // not counted at all
  send(media::Datagram(39));
  send(media::Datagram(1377));
  send(refused.terminate());

  struct Expected {
    const char* label;
    long value;
  };
  const Expected expected[] = {{"session number....", 2},
                               {"session number (zombie)", 1},
                               {"session existing index errors number", 1},
                               {"session unknown index errors number", 2},
                               {"session sequence break errors number", 1},
                               {"session lost packets number", 3},
                               {"session allocation errors number", 0},
                               {"packet dropped  by min length", 1},
                               {"packet dropped  by max length", 1},
                               {"packet rejected by bad marker", 1},
                               {"packet rejected by version", 1},
                               {"packet rejected by unknown type", 1},
                               {"packet rejected by corrupted size", 1},
                               {"packet 'start' type number", 3},
                               {"packet 'data'  type number", 5},
                               {"packet 'ctrl'  type number", 1},
                               {"packet 'term'  type number", 2},
                               {"packet queue dropped elements number", 0}};
  EXPECT_TRUE(eventually([&] { return statistic("packet 'term'  type number") == 2; }));
  for (const Expected& counter : expected) {
    EXPECT_EQ(statistic(counter.label), counter.value) << counter.label;
  }

  // LOG_LOCAL1 is 17: 17 * 8 + notice (5) or warning (4). LOG_LOCAL0 is 16.
  const std::string uuid = "00112233-4455-6677-8899-aabbccddee0";
  EXPECT_TRUE(syslog_has("<141>"));
  EXPECT_TRUE(
      syslog_has("START | mt: 0, v: 2, f: R-, uuid: " + uuid +
                 "1, ts: 1635500000, leg: inbound, call id: call-of-a-test, id: 1, sync ts: "
                 "0, sync mt: 0, ft: --SSAA, rule: 1"));
  EXPECT_TRUE(syslog_has("<140>"));
  EXPECT_TRUE(syslog_has("DATA  | mt: 0, uuid: " + uuid + "2, side: 1, seq: 1 | unknown session"));
  EXPECT_TRUE(syslog_has("TERM  | mt: 0, uuid: " + uuid + "4 | unknown session"));
  EXPECT_TRUE(syslog_has("<133>"));
  EXPECT_TRUE(syslog_has("corvanthmedianode:" + std::to_string(m_media_port) + " statistic"));
  EXPECT_EQ(syslog().find("num: "), std::string::npos) << "no DATA traces at INFO";
  EXPECT_TRUE(node_logged("media analyzing is off for the session"));
  expect_clean_stop();
}

TEST_F(NodeCalls, AStopSendsTheReportsThatAreQueued) {
  start_ready_node({known}, "report_on_call_termination=true");
  const auto audio = after_a_second(known);
  constexpr size_t calls = 20;
  for (size_t i = 0; i < calls; ++i) {
    // Every second call takes up the identifier of the one before, whose summary may be in the making.
    const CallPackets call(static_cast<uint8_t>(1 + i / 2));
    send_start(call, 1, 0x30, m_reports.port());
    send_audio(call, 1, audio);
    send(call.terminate());
  }
  // All ends have been handled, so all reports are queued or sent.
  ASSERT_TRUE(eventually([&] {
    size_t ends = 0;
    const std::string log = syslog();
    for (size_t at = 0; (at = log.find("TERM  | ", at)) != log.npos; ++at) ++ends;
    return ends == calls;
  }));
  expect_clean_stop();
  EXPECT_EQ(count_of(m_reports.texts(), "corvanth_detection"), calls);
  EXPECT_EQ(count_of(m_reports.texts(), "corvanth_sample_match"), calls);
  EXPECT_TRUE(node_logged("ANALYSIS_REPORT: reporting thread stopped"));
}

}  // namespace
}  // namespace cv::test
