#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/socket.h>

#include "core/clock.h"
#include "media/media_packet.h"
#include "support/udp_receiver.h"
#include "tools/load/load_sender.h"
#include "tools/load/load_verdict.h"
#include "utils/utils_str.h"

namespace cv::tools {
namespace {

constexpr uint64_t run = 0xA1B2C3D4;

TEST(LoadSender, PlaysCallsToTheirEndsWithFatesAndSwitches) {
  test::UdpReceiver node;
  net::Socket socket;
  const sockaddr_in to{AF_INET, htons(node.port()), {htonl(INADDR_LOOPBACK)}, {}};
  ASSERT_TRUE(socket.open(0, INADDR_LOOPBACK));
  ASSERT_EQ(connect(socket.descriptor(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
  // Two calls in one slot, the second one broken off after its third block.
  std::vector<CallScript> scripts(1);
  for (auto& side : scripts[0].sides) side.resize(5 * block_samples);
  scripts[0].fates[0] = {Fate::lost, Fate::late, Fate::arrives, Fate::twice, Fate::arrives};
  scripts[0].switches = {{2, 0}, {2, 0x30}, {4, 0x3C}};
  const LoadPlan plan = {.slots = 1, .scripts = 1, .call_blocks = 5, .end_tick = 150};
  LoadSender sender(plan, scripts, {{.rule = 7}, run}, socket.descriptor(),
                    steady_clock().now_us());
  ASSERT_EQ(sender.start(), 0);
  ASSERT_EQ(sender.stop(), 0);
  // Side and number of a block, features of a control packet, times in milliseconds.
  std::map<media::Uuid, std::ostringstream> sent;
  for (const std::string& text : node.texts()) {
    media::DataPacket packet{};
    std::memcpy(&packet, text.data(), std::min(text.size(), sizeof packet));
    std::ostringstream& call = sent[packet.uuid];
    if (packet.type == media::PACKET_START) call << "START ";
    if (packet.type == media::PACKET_DATA) call << packet.side() << packet.seq << " ";
    if (packet.type == media::PACKET_CTRL) call << "c" << int{static_cast<uint8_t>(text.back())};
    if (packet.type != media::PACKET_DATA) call << "@" << packet.mt / 1000 << " ";
    if (packet.type == media::PACKET_TERM) call << "TERM";
  }
  EXPECT_EQ(sent[load_uuid(run, 0)].str(),
            "START @0 11 12 c0@40 c48@40 03 02 13 04 04 14 c60@80 05 15 @100 TERM");
  EXPECT_EQ(sent[load_uuid(run, 1)].str(), "START @0 11 12 c0@40 c48@40 03 02 13 @50 TERM");
  EXPECT_EQ(sender.packets_left_out(), 2u);
  EXPECT_EQ(sender.packets_repeated(), 3u);
  EXPECT_EQ(sender.packets_sent(), node.texts().size());
}

TEST(Impairment, ALatePacketsSuccessorArrives) {
  Random random(1);
  const auto fates = draw_fates(10000, {.lost = 0.1, .late = 0.5, .twice = 0.1}, random);
  std::map<Fate, double> count;
  for (std::size_t i = 0; i < fates.size(); ++i) {
    ++count[fates[i]];
    EXPECT_TRUE(fates[i] != Fate::late || fates.at(i + 1) == Fate::arrives) << i;
  }
  // A third of the places are successors of late ones, where nothing is drawn.
  EXPECT_NEAR(count[Fate::late], 10000.0 / 3, 200);
  EXPECT_NEAR(count[Fate::lost], 10000.0 / 15, 100);
}

struct LoadJudgeTest : testing::Test {
  LoadJudgeTest() {
    const auto sample = [](uint16_t side, const char* name, uint32_t block) {
      return Finding{Finding::Kind::sample, side, name, block};
    };
    for (CallScript& script : m_scripts) {
      script.findings = {Finding{Finding::Kind::activity, 0, {}, 0}, sample(1, "busy", 1),
                         sample(1, "busy", 2)};
      script.planted = {1, 5000};
    }
  }
  void report(uint32_t call, const std::string& members, int64_t at_us = 0, uint64_t of_run = run) {
    m_judge.take(R"({"session_uuid": ")" + utils::str::print_uuid(load_uuid(of_run, call).data()) +
                     "\", " + members + "}",
                 at_us);
  }

  const std::string m_activity = R"("type": "audio_activity", "call_side": "originator")";
  const std::string m_busy =
      R"("type": "corvanth_detection", "call_side": "terminator", "sample_name": "busy")";
  /// Two slots, 20 ms apart, with calls of three blocks; the run ends in the middle of the second ones.
  const LoadPlan m_plan = {
      .slots = 2, .scripts = 2, .call_blocks = 3, .ramp_ticks = 40, .end_tick = 110};
  std::vector<CallScript> m_scripts = std::vector<CallScript>(2);
  LoadJudge m_judge{m_plan, m_scripts, run, 1000};
};

TEST_F(LoadJudgeTest, ExpectsWhatTheCallsLengthsGiveAndEachReportOnce) {
  // Calls of 3, 3, 3 and 2 blocks: the last one ends before its third finding.
  const Verdict before = m_judge.verdict(m_plan.end_tick);
  EXPECT_EQ(std::tuple(before.calls, before.expected, before.missing), std::tuple(4u, 11u, 11u));
  EXPECT_EQ(m_judge.verdict(0).calls, 0u) << "broken off before the first";
  for (uint32_t call = 0; call < 4; ++call) {
    report(call, m_activity);
    report(call, m_busy);
    if (call != 3) report(call, m_busy);
  }
  const Verdict after = m_judge.verdict(m_plan.end_tick);
  EXPECT_EQ(after.reported, 11u);
  EXPECT_EQ(after.missing + after.wrong + after.foreign, 0u);

  report(0, m_busy);
  report(1, R"("type": "corvanth_detection", "call_side": "originator", "sample_name": "busy")");
  report(2, R"("type": "audio_activity", "call_side": "terminator")");
  EXPECT_EQ(m_judge.verdict(m_plan.end_tick).wrong, 3u);
  EXPECT_EQ(m_judge.verdict(m_plan.end_tick).examples.at(1), "wrong: call 1, originator, \"busy\"");
  report(0, m_activity, 0, run + 1);
  report(100, m_activity);
  report(0, R"("type": "corvanth_sample_match")");
  for (const char* text : {"", "[]", "{\"type\": 1}"}) m_judge.take(text, 0);
  EXPECT_EQ(m_judge.verdict(m_plan.end_tick).foreign, 6u);
}

TEST_F(LoadJudgeTest, MeasuresFromTheRecordingsStartAndFromTheDecidingPacket) {
  // The second call of the first slot starts 60 ms after the run.
  report(2, m_busy, 1000 + 60000 + 30000);
  const Verdict verdict = m_judge.verdict(m_plan.end_tick);
  EXPECT_EQ(verdict.prompts, 1u);
  EXPECT_DOUBLE_EQ(verdict.after_start.median_ms, 25);
  EXPECT_DOUBLE_EQ(verdict.after_packet.largest_ms, 10);
}

}  // namespace
}  // namespace cv::tools
