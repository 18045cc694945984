#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <numeric>

#include "support/packet_builder.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {
namespace {

struct Sent {
  int64_t due_us;
  media::Datagram bytes;
};

std::vector<Sent> play(CallSchedule schedule) {
  std::vector<Sent> sent;
  Sent one{};
  while (schedule.next(one.due_us, one.bytes)) sent.push_back(one);
  return sent;
}

CallSettings settings() {
  return {{.rule = 99,
           .timestamp = 1700000000,
           .features = 0x3C,
           .report_addr = htonl(INADDR_LOOPBACK),
           .report_port = htons(5000)},
          "123456789",
          {1, 2, 3}};
}

std::vector<int16_t> ramp(std::size_t count) {
  std::vector<int16_t> samples(count);
  std::iota(samples.begin(), samples.end(), int16_t{1});
  return samples;
}

TEST(CallSchedule, IsStartThenBothSidesEveryTwentyMillisecondsThenTerm) {
  const auto sent = play(CallSchedule(settings(), {ramp(321), ramp(100)}));
  ASSERT_EQ(sent.size(), 1u + 2 * 3 + 1);

  test::Viewed<media::StartPacket> start(sent[0].bytes);
  EXPECT_EQ(sent[0].due_us, 0);
  EXPECT_EQ(start->type, media::PACKET_START);
  EXPECT_EQ(start->id, 0x995DC9BBDF1939FAu) << "the CRC-64 of the call id";
  EXPECT_TRUE(start->has_rule());
  EXPECT_EQ(start->rule, 99u);
  EXPECT_EQ(start->features(), 0x3C);
  EXPECT_EQ(ntohl(start->report_addr), 0x7F000001u);
  EXPECT_EQ(ntohs(start->report_port), 5000);

  for (std::size_t i = 1; i < 7; ++i) {
    SCOPED_TRACE(i);
    const std::size_t block = (i - 1) / 2;
    test::Viewed<media::DataPacket> data(sent[i].bytes);
    EXPECT_EQ(data->type, media::PACKET_DATA);
    EXPECT_EQ(data->side(), (i - 1) % 2);
    EXPECT_EQ(data->seq, block + 1);
    EXPECT_EQ(data->num, 160);
    EXPECT_EQ(data->mt, block * 20000);
    EXPECT_EQ(sent[i].due_us, static_cast<int64_t>(block) * 20000);
    const std::size_t recorded = data->side() == 0 ? 321 : 100;
    for (std::size_t at = 0; at < 160; ++at) {
      const std::size_t index = block * 160 + at;
      ASSERT_EQ(data->samples()[at], index < recorded ? static_cast<int>(index) + 1 : 0) << at;
    }
  }
  EXPECT_EQ(test::Viewed<media::PacketHeader>(sent[7].bytes)->type, media::PACKET_TERM);
  EXPECT_EQ(sent[7].due_us, 60000);
}

TEST(CallSchedule, NothingIsSentForASideThatIsNotThere) {
  for (const std::size_t side : {0u, 1u}) {
    CallSettings one_sided = settings();
    one_sided.there[side ^ 1] = false;
    CallSchedule::Sides sides;
    sides[side] = ramp(321);
    const auto sent = play(CallSchedule(one_sided, sides));
    ASSERT_EQ(sent.size(), 1u + 3 + 1);
    for (uint32_t i = 1; i < 4; ++i) {
      test::Viewed<media::DataPacket> data(sent[i].bytes);
      EXPECT_EQ(data->side(), side);
      EXPECT_EQ(data->seq, i);
      EXPECT_EQ(sent[i].due_us, 20000 * (i - 1));
    }
    EXPECT_EQ(sent[4].bytes.size(), sizeof(media::TerminatePacket));
    EXPECT_EQ(sent[4].due_us, 60000);
  }
}

}  // namespace
}  // namespace cv::tools
