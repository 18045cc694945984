#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <numeric>
#include <sstream>

#include "support/packet_builder.h"
#include "tools/play/call_schedule.h"

namespace cv::tools {
namespace {

std::vector<int16_t> ramp(std::size_t count) {
  std::vector<int16_t> samples(count);
  std::iota(samples.begin(), samples.end(), int16_t{1});
  return samples;
}

TEST(CallSchedule, IsStartThenASidesBlockEveryTwentyMillisecondsThenTerm) {
  const struct {
    std::array<std::size_t, 2> samples;  // 0: the side is not there
    const char* packets;                 // side and number of each block, and when it is due
  } table[] = {
      {{321, 100}, "0.1@0 1.1@0 0.2@20 1.2@20 0.3@40 1.3@40 TERM@60 "},
      {{321, 0}, "0.1@0 0.2@20 0.3@40 TERM@60 "},
      {{0, 321}, "1.1@0 1.2@20 1.3@40 TERM@60 "},
  };
  for (const auto& row : table) {
    CallSettings call;
    call.call_id = "123456789";
    for (std::size_t side : {0u, 1u}) call.there[side] = row.samples[side] != 0;
    CallSchedule schedule(call, {ramp(row.samples[0]), ramp(row.samples[1])});
    std::ostringstream packets;
    int64_t due_us = 0;
    media::Datagram bytes;
    ASSERT_TRUE(schedule.next(due_us, bytes));
    EXPECT_EQ(test::Viewed<media::StartPacket>(bytes)->id, 0x995DC9BBDF1939FAu)
        << "the CRC-64 of the call id";
    while (schedule.next(due_us, bytes)) {
      if (bytes.size() == sizeof(media::TerminatePacket)) {
        packets << "TERM@" << due_us / 1000 << " ";
        continue;
      }
      test::Viewed<media::DataPacket> data(bytes);
      packets << data->side() << "." << data->seq << "@" << due_us / 1000 << " ";
      EXPECT_EQ(data->mt, due_us);
      ASSERT_EQ(data->num, 160);
      for (std::size_t at = 0; at < 160; ++at) {
        const std::size_t index = (data->seq - 1) * 160 + at;
        const bool recorded = index < row.samples.at(data->side());
        ASSERT_EQ(data->samples()[at], recorded ? static_cast<int>(index) + 1 : 0) << index;
      }
    }
    EXPECT_EQ(packets.str(), row.packets);
  }
}

}  // namespace
}  // namespace cv::tools
