#include <cstring>
#include <gtest/gtest.h>
#include <numeric>

#include "media/media_packet.h"
#include "tools/endpoint.h"
#include "tools/play/call_schedule.h"
#include "tools/play/play_command.h"

namespace cv::tools {
namespace {

struct Sent {
  int64_t due_us;
  media::Datagram bytes;

  template <typename Packet>
  Packet view() const {
    Packet packet{};
    std::memcpy(&packet, bytes.data(), sizeof packet);
    return packet;
  }
  int16_t sample(std::size_t index) const {
    int16_t value = 0;
    std::memcpy(&value, bytes.data() + sizeof(media::DataPacket) + 2 * index, sizeof value);
    return value;
  }
};

std::vector<Sent> play(CallSchedule schedule, std::size_t cut_after = SIZE_MAX) {
  std::vector<Sent> sent;
  Sent one{};
  while (schedule.next(one.due_us, one.bytes)) {
    sent.push_back(one);
    if (sent.size() == cut_after) schedule.cut_short();
  }
  return sent;
}

CallSettings settings() {
  return {.call_id = "123456789",
          .uuid = {1, 2, 3},
          .rule = 99,
          .timestamp = 1700000000,
          .features = 0x3C,
          .report_addr = htonl(0x7F000001),
          .report_port = htons(5000)};
}

std::vector<int16_t> ramp(std::size_t count) {
  std::vector<int16_t> samples(count);
  std::iota(samples.begin(), samples.end(), int16_t{1});
  return samples;
}

TEST(CallSchedule, IsStartThenBothSidesEveryTwentyMillisecondsThenTerm) {
  const auto sent = play(CallSchedule(settings(), {ramp(321), ramp(100)}));
  ASSERT_EQ(sent.size(), 1u + 2 * 3 + 1);

  const auto start = sent[0].view<media::StartPacket>();
  EXPECT_EQ(sent[0].due_us, 0);
  EXPECT_EQ(start.type, media::PACKET_START);
  EXPECT_EQ(start.id, 0x995DC9BBDF1939FAu) << "the CRC-64 of the call id";
  EXPECT_TRUE(start.has_rule());
  EXPECT_EQ(start.rule, 99u);
  EXPECT_EQ(start.features(), 0x3C);
  EXPECT_EQ(start.ts, 1700000000u);
  EXPECT_EQ(start.uuid[2], 3);
  EXPECT_EQ(ntohl(start.report_addr), 0x7F000001u);
  EXPECT_EQ(ntohs(start.report_port), 5000);

  for (std::size_t i = 1; i < 7; ++i) {
    SCOPED_TRACE(i);
    const std::size_t block = (i - 1) / 2;
    const auto data = sent[i].view<media::DataPacket>();
    EXPECT_EQ(data.type, media::PACKET_DATA);
    EXPECT_EQ(data.side(), (i - 1) % 2);
    EXPECT_EQ(data.seq, block + 1);
    EXPECT_EQ(data.off, block * 160);
    EXPECT_EQ(data.num, 160);
    EXPECT_EQ(data.mt, block * 20000);
    EXPECT_EQ(sent[i].due_us, static_cast<int64_t>(block) * 20000);
    const std::size_t recorded = data.side() == 0 ? 321 : 100;
    for (std::size_t at = 0; at < 160; ++at) {
      const std::size_t index = block * 160 + at;
      ASSERT_EQ(sent[i].sample(at), index < recorded ? static_cast<int>(index) + 1 : 0) << at;
    }
  }
  const auto term = sent[7].view<media::PacketHeader>();
  EXPECT_EQ(term.type, media::PACKET_TERM);
  EXPECT_EQ(term.mt, 60000u);
  EXPECT_EQ(sent[7].due_us, 60000);
}

TEST(CallSchedule, CutShortEndsWithTermWhereverItIs) {
  for (std::size_t after = 1; after < 7; ++after) {
    SCOPED_TRACE(after);
    const auto sent = play(CallSchedule(settings(), {ramp(480), {}}), after);
    ASSERT_EQ(sent.size(), after + 1);
    EXPECT_EQ(sent.back().view<media::PacketHeader>().type, media::PACKET_TERM);
    EXPECT_EQ(sent.back().due_us, static_cast<int64_t>(after - 1) / 2 * 20000);
  }
}

TEST(CallSchedule, WithoutAudioIsStartAndTermAndNothingForAnIdThatFitsNoPacket) {
  auto call = settings();
  EXPECT_EQ(play(CallSchedule(call, {})).size(), 2u);
  call.call_id.assign(2000, 'x');
  EXPECT_TRUE(play(CallSchedule(call, {ramp(160), {}})).empty());
}

TEST(PlayArguments, FeaturesAndUuids) {
  EXPECT_EQ(feature_bits({"samples", "activity"}), 0x3C);
  EXPECT_EQ(feature_bits({"activity-originator"}), 0x04);
  EXPECT_EQ(feature_bits({"activity-terminator", "samples"}), 0x38);
  EXPECT_EQ(feature_bits({"none"}), 0x00);
  EXPECT_FALSE(feature_bits({"sample"}));
  const auto uuid = parse_uuid("00112233-4455-6677-8899-AABBccddeeff");
  ASSERT_TRUE(uuid);
  EXPECT_EQ((*uuid)[1], 0x11);
  EXPECT_EQ((*uuid)[15], 0xFF);
  EXPECT_EQ(parse_uuid("00112233445566778899aabbccddeeff"), uuid);
  for (const char* text :
       {"", "00112233-4455-6677-8899-AABBccddeef", "x0112233445566778899aabbccddeeff",
        "00112233445566778899aabbccddeeff00", "--00112233445566778899aabbccddeeff"}) {
    EXPECT_FALSE(parse_uuid(text)) << text;
  }
}

TEST(Endpoint, IsAHostAndAPort) {
  std::string error;
  const auto good = parse_endpoint("127.0.0.1:65535", error);
  ASSERT_TRUE(good) << error;
  EXPECT_EQ(ntohl(good->sin_addr.s_addr), 0x7F000001u);
  EXPECT_EQ(ntohs(good->sin_port), 65535);
  for (const char* text : {"", "127.0.0.1", "127.0.0.1:", ":80", "127.0.0.1:0", "127.0.0.1:65536",
                           "127.0.0.1:8o", "127.0.0.1:-1", "300.0.0.1.1:80"}) {
    error.clear();
    EXPECT_FALSE(parse_endpoint(text, error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

}  // namespace
}  // namespace cv::tools
