#include <cstring>
#include <gtest/gtest.h>

#include "media/media_packet.h"
#include "tools/crc64.h"
#include "tools/endpoint.h"
#include "tools/play/call_schedule.h"
#include "tools/play/play_command.h"

namespace {

using cv::tools::CallSchedule;
namespace media = cv::media;

struct Sent {
  int64_t due_us;
  media::Datagram bytes;

  uint8_t type() const { return bytes[4]; }
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

cv::tools::CallSettings settings() {
  cv::tools::CallSettings result;
  result.call_id = "123456789";
  result.uuid[15] = 7;
  result.rule = 99;
  result.timestamp = 1700000000;
  result.features = 0x3C;
  result.report_addr = htonl(0x7F000001);
  result.report_port = htons(5000);
  return result;
}

std::vector<int16_t> ramp(std::size_t count) {
  std::vector<int16_t> samples(count);
  for (std::size_t i = 0; i < count; ++i) samples[i] = static_cast<int16_t>(i + 1);
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
    for (const std::size_t at : {0, 99, 100, 159}) {
      const std::size_t index = block * 160 + at;
      EXPECT_EQ(sent[i].sample(at), index < recorded ? static_cast<int>(index) + 1 : 0);
    }
  }
  EXPECT_EQ(sent[7].type(), media::PACKET_TERM);
  EXPECT_EQ(sent[7].due_us, 60000);
  EXPECT_EQ(sent[7].view<media::PacketHeader>().mt, 60000u);
}

TEST(CallSchedule, ACallWithoutAudioIsStartAndTerm) {
  const auto sent = play(CallSchedule(settings(), {}));
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[1].type(), media::PACKET_TERM);
}

TEST(CallSchedule, CutShortEndsWithTermWhereverItIs) {
  for (std::size_t after = 1; after < 7; ++after) {
    SCOPED_TRACE(after);
    const auto sent = play(CallSchedule(settings(), {ramp(480), {}}), after);
    ASSERT_EQ(sent.size(), after + 1);
    EXPECT_EQ(sent.back().type(), media::PACKET_TERM);
    EXPECT_EQ(sent.back().due_us, static_cast<int64_t>(after - 1) / 2 * 20000);
  }
}

TEST(CallSchedule, ACallIdThatFitsNoPacketSendsNothing) {
  auto too_long = settings();
  too_long.call_id.assign(2000, 'x');
  EXPECT_TRUE(play(CallSchedule(too_long, {ramp(160), {}})).empty());
}

TEST(Crc64, IsThePublishedVariant) {
  EXPECT_EQ(cv::tools::crc64("123456789"), 0x995DC9BBDF1939FAu);
  EXPECT_EQ(cv::tools::crc64(""), 0u);
}

TEST(PlayArguments, FeaturesAndUuids) {
  EXPECT_EQ(cv::tools::feature_bits({"samples", "activity"}), 0x3C);
  EXPECT_EQ(cv::tools::feature_bits({"activity-originator"}), 0x04);
  EXPECT_EQ(cv::tools::feature_bits({"activity-terminator", "samples"}), 0x38);
  EXPECT_EQ(cv::tools::feature_bits({"none"}), 0x00);
  EXPECT_FALSE(cv::tools::feature_bits({"sample"}));

  const char* good[] = {"00112233-4455-6677-8899-AABBccddeeff", "00112233445566778899aabbccddeeff"};
  for (const char* text : good) {
    const auto uuid = cv::tools::parse_uuid(text);
    ASSERT_TRUE(uuid) << text;
    EXPECT_EQ((*uuid)[1], 0x11);
    EXPECT_EQ((*uuid)[15], 0xFF);
  }
  for (const char* text :
       {"", "00112233-4455-6677-8899-AABBccddeef", "x0112233445566778899aabbccddeeff",
        "00112233445566778899aabbccddeeff00", "--00112233445566778899aabbccddeeff"}) {
    EXPECT_FALSE(cv::tools::parse_uuid(text)) << text;
  }
}

TEST(Endpoint, IsAHostAndAPort) {
  std::string error;
  const auto good = cv::tools::parse_endpoint("127.0.0.1:65535", error);
  ASSERT_TRUE(good) << error;
  EXPECT_EQ(ntohl(good->sin_addr.s_addr), 0x7F000001u);
  EXPECT_EQ(ntohs(good->sin_port), 65535);
  for (const char* text : {"", ":", "127.0.0.1", "127.0.0.1:", ":80", "127.0.0.1:0",
                           "127.0.0.1:65536", "127.0.0.1:8o", "127.0.0.1:-1", "300.0.0.1.1:80"}) {
    error.clear();
    EXPECT_FALSE(cv::tools::parse_endpoint(text, error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

}  // namespace
